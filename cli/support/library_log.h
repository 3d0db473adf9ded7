// What the library says in the system log, and why a call failed by it.
#pragma once

#include <string>
#include <string_view>
#include <thread>

#include "base/unique_fd.h"

namespace cli {

// Opens the system log; when `shown`, standard error gets its lines too.
void OpenSystemLog(bool shown);

// Picks the reason of a failure out of the log as it passes by: the last words of the tool that failed, or
// else the library's own last words.
class LogReader {
  public:
    // The next piece of the log as standard error gets it, in lines such as
    // "vemocachectl[123]: flashcache_create.cpp:84 flashcache_create: no such disk".
    void Take(std::string_view piece);

    [[nodiscard]] std::string Reason() const;  // empty: nothing was said

  private:
    void TakeLine(std::string_view line);

    std::string line_;    // the unfinished one
    std::string tool_;    // that runs, or ran last
    std::string last_;    // what was said last, since that tool began
    std::string reason_;  // once a tool has failed
};

// Reads the log of all library calls while it lives.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // Ends the capture.
    std::string Reason();

  private:
    void End();

    LogReader log_;
    base::UniqueFd stderr_;  // standard error proper
    base::UniqueFd stop_;    // tells the reader of the end by being closed
    std::thread reader_;
};

}  // namespace cli
