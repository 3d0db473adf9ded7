#pragma once

#include <string>
#include <string_view>

#include "base/unique_fd.h"

namespace simulation {

// The appliance's system log: what is sent to /dev/log, one readable line a message:
//  "<date> <<severity>> <ident>: <text>". Reading it first takes in what was sent before, so that a reader
//  finds every message that was sent until then.
class SystemLog {
  public:
    // `socket` is (or will be) bound to /dev/log; `file` keeps the lines.
    SystemLog(base::UniqueFd socket, base::UniqueFd file)
        : socket_(std::move(socket)), file_(std::move(file)) {}

    int Socket() const { return socket_.Get(); }
    // Takes in what was sent.
    void Drain();
    std::string Read();
    void Append(std::string_view line);
    // A message of our own.
    void AppendNow(int severity, const std::string& text);
    void Clear();

  private:
    base::UniqueFd socket_;
    base::UniqueFd file_;
};

// Makes the log's line of a datagram "<PRIORITY>DATE IDENT: TEXT"; line ends within the text become "#012".
std::string FormatLogLine(std::string_view datagram);

}  // namespace simulation
