// The processes inside, as reported by the first program there to the launcher outside.
#ifndef TAVO_TOOLS_APPLIANCE_REPORTED_PROCESSES_H
#define TAVO_TOOLS_APPLIANCE_REPORTED_PROCESSES_H

#include "base/descriptor.h"

namespace tavo {

// Sends the report through `socket`: descriptors of the calling process, which becomes the command,
// and of the first process of its PID namespace, which ends together with the namespace.
void ReportProcesses(int socket);

class ReportedProcesses {
  public:
    // Creates a socket pair for the report.
    ReportedProcesses();
    // Waits until the last process inside has ended. bubblewrap must have ended before.
    ~ReportedProcesses();
    ReportedProcesses(const ReportedProcesses &) = delete;
    ReportedProcesses &operator=(const ReportedProcesses &) = delete;

    int InsideSocket() const { return inside_socket_.Get(); }
    // -1 once the report has been received.
    int ReportSocket() const { return report_socket_.Get(); }

    // Receives the report if it has arrived.
    void ReceiveReport();
    bool Reported() const { return command_.IsOpen(); }

    // Sends the command a signal if it is still running.
    void SignalCommand(int signal) const;

  private:
    Descriptor inside_socket_;
    Descriptor report_socket_;
    Descriptor command_;
    Descriptor first_;
};

}  // namespace tavo

#endif
