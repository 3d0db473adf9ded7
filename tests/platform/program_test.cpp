#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <vector>

#include "platform/vemocore.h"
#include "support/private_folder.h"

namespace {

std::string ReadAll(FILE* stream) {
    std::string text;
    if (stream == nullptr) return "(not started)";
    for (int c = 0; (c = std::fgetc(stream)) != EOF;) text += static_cast<char>(c);
    return text;
}

template <typename... Arguments>
std::string Output(const char* program, const char* mode, Arguments... arguments) {
    FILE* const stream = VLIBCPopen(program, mode, arguments..., nullptr);
    std::string text = ReadAll(stream);
    if (stream != nullptr) VLIBCPclose(stream);
    return text;
}

TEST(Program, ArgumentsArriveAsTheyAre) {
    EXPECT_EQ(Output("/usr/bin/printf", "r", "<%s>", "a b", "", "*", "$(id)", "x\ny", "'\"", "%s;"),
              "<a b><><*><$(id)><x\ny><'\"><%s;>");
}

TEST(Program, OutcomesAreToldApart) {
    const std::pair<const char*, int> cases[] = {
        {"exit 0", 0}, {"exit 7", 7}, {"exit 255", 255}, {"kill -TERM $$", 143}, {"kill -KILL $$", 137}};
    for (const auto& [script, status] : cases) {
        EXPECT_EQ(VLIBCExecl("/bin/sh", VLIBC_EXEC_WAIT, "-c", script, nullptr), status) << script;
        EXPECT_EQ(VLIBCPclose(VLIBCPopen("/bin/sh", "r", "-c", script, nullptr)), status) << script;
    }
    EXPECT_EQ(Output("/bin/sh", "r", "-c", "echo out; echo err >&2"), "out\n");
    EXPECT_EQ(Output("/bin/sh", "rE", "-c", "echo out; echo err >&2"), "err\n");
    // A child that still writes is not waited for: its reader is gone.
    EXPECT_EQ(VLIBCPclose(VLIBCPopen("yes", "r", nullptr)), 128 + SIGPIPE);
    EXPECT_EQ(VLIBCPclose(nullptr), -1);
    EXPECT_EQ(VLIBCPclose(stdin), -1);
}

TEST(Program, WhatCannotBeStartedIsKnownAtOnce) {
    const PrivateFolder folder;
    const std::string plain = folder / "plain";
    const std::string script = folder / "script";
    WriteText(plain, "#!/bin/sh\n");
    WriteText(script, "echo a shell would run this\n");
    std::filesystem::permissions(script, std::filesystem::perms::all);
    const std::pair<std::string, int> cases[] = {
        {"/no/such/tool", ENOENT}, {"no-such-tool", ENOENT}, {"", ENOENT},
        {"/tmp", EACCES},          {plain, EACCES},          {script, ENOEXEC}};
    for (const auto& [program, error] : cases) {
        EXPECT_EQ(VLIBCPopen(program.c_str(), "r", "x", nullptr), nullptr) << program;
        EXPECT_EQ(errno, error) << program;
        EXPECT_EQ(VLIBCExecl(program.c_str(), VLIBC_EXEC_WAIT, nullptr), -1) << program;
        EXPECT_EQ(errno, error) << program;
    }
    EXPECT_EQ(VLIBCPopen("/bin/true", "w", nullptr), nullptr);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child was left";
}

TEST(Program, NamesAreSoughtInTheSystemsFoldersAlone) {
    const PrivateFolder folder;
    const std::string fake = folder / "true";
    WriteText(fake, "#!/bin/sh\nexit 9\n");
    std::filesystem::permissions(fake, std::filesystem::perms::all);
    const char* const path = getenv("PATH");
    ASSERT_NE(path, nullptr);
    const std::string before = path;
    setenv("PATH", std::filesystem::path(fake).parent_path().c_str(), 1);
    std::filesystem::current_path(std::filesystem::path(fake).parent_path());
    EXPECT_EQ(VLIBCExecl("true", VLIBC_EXEC_WAIT, nullptr), 0);
    std::filesystem::current_path("/");
    setenv("PATH", before.c_str(), 1);
}

TEST(Program, AChildsEnvironmentIsFixed) {
    const std::pair<const char*, const char*> ours[] = {
        {"LD_PRELOAD", ""}, {"IFS", "/"}, {"BASH_ENV", "/tmp/x"}, {"LC_ALL", "de_DE.UTF-8"}, {"TZ", "UTC"}};
    for (const auto& [name, value] : ours) {
        setenv(name, value, 1);
    }
    const std::string seen = Output("env", "r");
    for (const auto& [name, value] : ours) {
        unsetenv(name);
    }
    EXPECT_THAT(seen, testing::HasSubstr("PATH=/usr/sbin:/usr/bin:/sbin:/bin\nLC_ALL=C\nTZ=UTC\n"));
    for (const char* name : {"LD_", "IFS", "BASH_ENV", "HOME"}) {
        EXPECT_THAT(seen, testing::Not(testing::HasSubstr(name)));
    }
}

TEST(Program, AChildBeginsWithNothingOfOurs) {
    const int leak = open("/etc/passwd", O_RDONLY);  // as a careless caller does, without close-on-exec
    const std::string number = std::to_string(leak);
    signal(SIGPIPE, SIG_IGN);
    signal(SIGUSR1, SIG_IGN);
    sigset_t blocked;
    sigset_t before;
    sigfillset(&blocked);
    sigprocmask(SIG_BLOCK, &blocked, &before);
    const std::string handling = Output("grep", "r", "-hE", "^Sig(Blk|Ign)", "/proc/self/status");
    unsigned long long masked = 1;
    unsigned long long ignored = 1;
    ASSERT_EQ(std::sscanf(handling.c_str(), "SigBlk: %llx SigIgn: %llx", &masked, &ignored), 2) << handling;
    EXPECT_EQ(masked, 0U);
    EXPECT_EQ(ignored & 0x7fffffff, 0U);  // above are those that the C library keeps for itself
    const std::string script = "cd /proc/$$/fd; readlink 0 2 " + number + "; readlink 1 | cut -c-4";
    EXPECT_EQ(Output("/bin/sh", "r", "-c", script.c_str()), "/dev/null\n/dev/null\npipe\n");
    EXPECT_EQ(Output("/bin/sh", "rE", "-c", "out=$(readlink /proc/$$/fd/1); echo $out >&2"), "/dev/null\n");
    EXPECT_EQ(VLIBCExecl("/bin/sh", VLIBC_EXEC_WAIT, "-c",
                         "for fd in 0 1 2; do test $(readlink /proc/$$/fd/$fd) = /dev/null || exit 1; done",
                         nullptr),
              0);
    close(leak);
    sigprocmask(SIG_SETMASK, &before, nullptr);
}

TEST(Program, ClosedStandardDescriptorsDoNotMixUpThePipe) {
    const std::vector<int> saved = {dup(0), dup(1), dup(2)};
    for (const int fd : {0, 1, 2}) close(fd);
    const std::string out = Output("/bin/sh", "r", "-c", "echo out; echo err >&2");
    const std::string err = Output("/bin/sh", "rE", "-c", "echo out; echo err >&2");
    for (const int fd : {0, 1, 2}) {
        dup2(saved[static_cast<size_t>(fd)], fd);
        close(saved[static_cast<size_t>(fd)]);
    }
    EXPECT_EQ(out, "out\n");
    EXPECT_EQ(err, "err\n");
}

TEST(Program, WaitsOutliveInterruptions) {
    struct sigaction action{};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    const itimerval often{{0, 2000}, {0, 2000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    EXPECT_EQ(VLIBCExecl("sleep", VLIBC_EXEC_WAIT, "0.1", nullptr), 0);
    EXPECT_EQ(VLIBCPclose(VLIBCPopen("/bin/sh", "r", "-c", "exec >&-; sleep 0.1; exit 5", nullptr)), 5);
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
}

TEST(Program, ManyThreadsKeepTheirChildrenApart) {
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([i] {
            const std::string script = "echo " + std::to_string(i) + "; exit " + std::to_string(i);
            for (int round = 0; round < 10; ++round) {
                FILE* const stream = VLIBCPopen("/bin/sh", "r", "-c", script.c_str(), nullptr);
                EXPECT_EQ(ReadAll(stream), std::to_string(i) + "\n");
                EXPECT_EQ(VLIBCPclose(stream), i);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

}  // namespace
