// What the reader of the library's log makes of odd lines.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <csignal>

#include "support/library_log.h"

namespace cli {
namespace {

constexpr const char* kCreate = "vemocachectl[7]: a.cpp:1 Create Cache: /usr/bin/flashcache_create -n\n";
constexpr const char* kFailed = "vemocachectl[7]: a.cpp:3 Get error messages, Create cache failed\n";

TEST(LibraryLog, YieldsTheReason) {
    const std::string create = kCreate;
    const std::string failed = kFailed;
    const std::pair<std::string, const char*> cases[] = {
        {"", ""},
        {"vemocachectl[7]: a.cpp:2 Popen failed\n", "the library says: Popen failed"},
        {"vemocachectl[7]: a.cpp:2 no knob. [0x8100 b.cpp:5]\n", "the library says: no knob"},
        {create + "vemocachectl[7]: a.cpp:2 no disk\nvemocachectl[7]: a.cpp:2 \n" + failed,
         "flashcache_create: no disk"},
        {create + "vemocachectl[7]: a.cpp:2 flashcache_create: no disk\n" + failed + "a.cpp:9 later\n",
         "flashcache_create: no disk"},
        {create + "no disk\nCommand failed.\n" + failed, "flashcache_create: no disk"},
        {create + failed, "the library says: Get error messages, Create cache failed"},
        {create + "vemocachectl[7]: a.cpp:2 no disk\n" + failed + create, ""},
    };
    for (const auto& [text, reason] : cases) {
        // In one piece, and in as many as there can be.
        LogReader whole;
        whole.Take(text);
        EXPECT_EQ(whole.Reason(), reason) << text;
        LogReader pieces;
        for (const char& character : text) {
            pieces.Take({&character, 1});
        }
        EXPECT_EQ(pieces.Reason(), reason) << text;
    }
}

TEST(LibraryLog, CutsALongLine) {
    LogReader log;
    log.Take(kCreate + std::string(1U << 20U, 'x') + "\n" + kFailed);
    EXPECT_LT(log.Reason().size(), 400U);
    EXPECT_EQ(log.Reason().substr(0, 22), "flashcache_create: xxx");
}

TEST(LibraryLog, WaitsForNobodyWhoKeepsIt) {
    LogCapture log;
    const pid_t left = fork();
    if (left == 0) {
        execlp("sleep", "sleep", "1000", nullptr);
        _exit(1);
    }
    syslog(LOG_ERR, "a.cpp:2 Popen failed");
    EXPECT_EQ(log.Reason(), "the library says: Popen failed");
    kill(left, SIGKILL);
    waitpid(left, nullptr, 0);
}

}  // namespace
}  // namespace cli
