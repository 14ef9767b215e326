// The system log of one run: the receiving end of /dev/log.
#ifndef TAVO_TOOLS_APPLIANCE_MESSAGE_LOG_H
#define TAVO_TOOLS_APPLIANCE_MESSAGE_LOG_H

#include <filesystem>
#include <string>
#include <string_view>

#include "base/descriptor.h"

namespace tavo {

// Inside, /dev/log is a link to this socket.
constexpr const char *kLogSocket = "/run/log/socket";

class MessageLog {
  public:
    // Creates the socket and the file messages in the folder /run/log of the tree `root`.
    explicit MessageLog(const std::filesystem::path &root);
    // Removes the socket, which is no longer read.
    ~MessageLog();
    MessageLog(const MessageLog &) = delete;
    MessageLog &operator=(const MessageLog &) = delete;

    int Socket() const { return socket_.Get(); }

    // Appends all messages that have arrived to the file.
    void Drain() const;

  private:
    Descriptor folder_;
    Descriptor socket_;
    Descriptor file_;
};

// Converts a message as sent ("<11>Nov 20 11:12:13 name: text") to a line of the file ("user.err
// Nov 20 11:12:13 name: text"), with its newline.
std::string MessageLine(std::string_view message);

}  // namespace tavo

#endif
