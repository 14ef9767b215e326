// The processes inside, as the first program there reports them to the launcher outside.
#ifndef TAVO_TOOLS_APPLIANCE_REPORTED_PROCESSES_H
#define TAVO_TOOLS_APPLIANCE_REPORTED_PROCESSES_H

#include "base/descriptor.h"

namespace tavo {

// Sends the report through `socket`: the calling process, which is to become the command, and the
// first one of its process table, with which the table ends.
void ReportProcesses(int socket);

class ReportedProcesses {
  public:
    // Makes a pair of sockets for the report.
    ReportedProcesses();
    // Waits until the last process inside is gone. bubblewrap must have ended before.
    ~ReportedProcesses();
    ReportedProcesses(const ReportedProcesses &) = delete;
    ReportedProcesses &operator=(const ReportedProcesses &) = delete;

    int InsideSocket() const { return inside_socket_.Get(); }
    // -1 when the report has been received.
    int ReportSocket() const { return report_socket_.Get(); }

    // Takes the report if it has come by now.
    void ReceiveReport();
    bool Reported() const { return command_.IsOpen(); }

    // Sends the command a signal if it still runs.
    void SignalCommand(int signal) const;

  private:
    Descriptor inside_socket_;
    Descriptor report_socket_;
    Descriptor command_;
    Descriptor first_;
};

}  // namespace tavo

#endif
