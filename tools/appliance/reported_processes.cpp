#include "reported_processes.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "failure.h"
#include "pidfd.h"

namespace tavo {
namespace {

struct Report {
    int command;
    int first;
};

// A message of one byte with space for the two descriptors of a report.
class ReportMessage {
  public:
    ReportMessage() {
        header_.msg_iov = &data_;
        header_.msg_iovlen = 1;
        header_.msg_control = control_;
        header_.msg_controllen = sizeof(control_);
    }
    ReportMessage(const ReportMessage &) = delete;
    ReportMessage &operator=(const ReportMessage &) = delete;

    msghdr *Header() { return &header_; }
    cmsghdr *Control() { return CMSG_FIRSTHDR(&header_); }

  private:
    char byte_ = 0;
    iovec data_ = {&byte_, 1};
    alignas(cmsghdr) char control_[CMSG_SPACE(sizeof(Report))] = {};
    msghdr header_ = {};
};

}  // namespace

void ReportProcesses(int socket) {
    const Descriptor command(pidfd_open(getpid(), 0));
    const Descriptor first(pidfd_open(1, 0));
    const Report report = {command.Get(), first.Get()};
    ReportMessage message;
    message.Control()->cmsg_level = SOL_SOCKET;
    message.Control()->cmsg_type = SCM_RIGHTS;
    message.Control()->cmsg_len = CMSG_LEN(sizeof(report));
    std::memcpy(CMSG_DATA(message.Control()), &report, sizeof(report));
    if (sendmsg(socket, message.Header(), MSG_NOSIGNAL) < 0) {
        FailWithErrno("cannot report to the launcher");
    }
}

ReportedProcesses::ReportedProcesses() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        FailWithErrno("socketpair");
    }
    inside_socket_ = Descriptor(ends[0]);
    report_socket_ = Descriptor(ends[1]);
}

ReportedProcesses::~ReportedProcesses() {
    pollfd event = {first_.Get(), POLLIN, 0};
    while (first_.IsOpen() && poll(&event, 1, -1) < 0 && errno == EINTR) {
    }
}

void ReportedProcesses::ReceiveReport() {
    ReportMessage message;
    if (!report_socket_.IsOpen() ||
        recvmsg(report_socket_.Get(), message.Header(), MSG_DONTWAIT | MSG_CMSG_CLOEXEC) != 1 ||
        message.Control() == nullptr) {
        return;
    }
    Report report = {};
    std::memcpy(&report, CMSG_DATA(message.Control()), sizeof(report));
    command_ = Descriptor(report.command);
    first_ = Descriptor(report.first);
    report_socket_ = Descriptor();
}

void ReportedProcesses::SignalCommand(int signal) const {
    pidfd_send_signal(command_.Get(), signal, nullptr, 0);
}

}  // namespace tavo
