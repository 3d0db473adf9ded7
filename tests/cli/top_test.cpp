// The full-screen view, on a terminal of its own.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "cli/tool.h"

namespace tests {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr const char* kEnter = "\x1b[?1049h\x1b[?25l";
constexpr const char* kLeave = "\x1b[?25h\x1b[?1049l";
constexpr const char* kFirst = "md3+volume_1";

Step Type(const std::string& awaited, const std::string& keys) {
    return {awaited, [keys](pid_t) { return keys; }};
}

Step Send(const std::string& awaited, int signal) {
    return {awaited, [signal](pid_t program) {
                kill(program, signal);
                return std::string();
            }};
}

// Lets a program go on that is about to stop: a signal that comes before it has stopped would be lost.
Step GoOn(const std::string& awaited) {
    return {awaited, [](pid_t program) {
                siginfo_t stopped = {};
                EXPECT_EQ(waitid(P_PID, static_cast<id_t>(program), &stopped, WSTOPPED), 0);
                kill(program, SIGCONT);
                return std::string();
            }};
}

Step Resize(const std::string& awaited, unsigned short columns, unsigned short rows) {
    return {awaited, [columns, rows](pid_t program) {
                const int terminal =
                    open(("/proc/" + std::to_string(program) + "/fd/1").c_str(), O_RDWR | O_NOCTTY);
                const winsize size{rows, columns, 0, 0};
                EXPECT_EQ(ioctl(terminal, TIOCSWINSZ, &size), 0);
                close(terminal);
                return std::string();
            }};
}

Ran Top(const std::vector<Step>& steps, Words options = {}, unsigned short columns = 80,
        unsigned short rows = 24) {
    Words words = {VEMOCACHECTL_PATH, "top", "--watch", "0.1"};
    words.insert(words.end(), options.begin(), options.end());
    return OnTerminal(words, steps, columns, rows);
}

class TopTest : public ::testing::Test {
  protected:
    void SetUp() override {
        setenv("TERM", "xterm", 1);
        setenv("LC_ALL", "C.UTF-8", 1);
        unsetenv("NO_COLOR");
        CreateCache();
        ASSERT_EQ(Tool({"create", "/dev/md4", "/dev/vg1/volume_2", "--size", "32M", "--mode", "around"}).code,
                  0);
    }
};

TEST_F(TopTest, GivesTheTerminalBackHoweverItEnds) {
    const struct {
        Step end;
        int code;
    } cases[] = {{Type(kFirst, "q"), 0},
                 {Type(kFirst, "\x03"), 128 + SIGINT},
                 {Send(kFirst, SIGINT), 128 + SIGINT},
                 {Send(kFirst, SIGTERM), 128 + SIGTERM},
                 {Send(kFirst, SIGHUP), 128 + SIGHUP}};
    for (const auto& one : cases) {
        const Ran ran = Top({one.end});
        EXPECT_EQ(ran.code, one.code);
        EXPECT_THAT(ran.out, StartsWith(kEnter));
        EXPECT_THAT(ran.out, EndsWith(kLeave));
    }
    const Ran failed = Top({}, {"-o", "nmae"});
    EXPECT_EQ(failed.code, kUsage);
    EXPECT_THAT(failed.out, HasSubstr(std::string(kLeave) + "vemocachectl: wrong usage"));
    // The terminal shows again what is typed, line by line.
    const std::string shell = std::string(VEMOCACHECTL_PATH) + " top --watch 0.1; stty -a";
    const Ran modes = OnTerminal({"sh", "-c", shell}, {Type("md4", "q")}, 80, 24);
    EXPECT_THAT(modes.out, HasSubstr(" icanon"));
    EXPECT_THAT(modes.out, HasSubstr(" echo "));
}

TEST_F(TopTest, StopsAndGoesOn) {
    const Ran ran = Top({Type(kFirst, "\x1a"), GoOn(kLeave), Type(kFirst, "q")});
    EXPECT_EQ(ran.code, 0);
    EXPECT_THAT(ran.out, EndsWith(kLeave));
}

TEST_F(TopTest, SortsByTheKeyThatIsTyped) {
    const std::pair<Step, const char*> cases[] = {
        {Type("--sort name", "w"), "--sort -writes_per_second"},
        {Type("--sort name", "ww"), "--sort writes_per_second"},
        {Type("--sort name", "\x1b[Bn"), "--sort name"},  // what follows an escape is no key
        {Type("--sort name", "d"), "--sort -dirty_bytes"}};
    for (const auto& [key, shown] : cases) {
        EXPECT_EQ(Top({key, Type(shown, "q")}).code, 0);
    }
    const auto order = [](const std::string& keys) {
        const std::string awaited = keys.empty() ? "--sort name" : "--sort -name";
        const Ran ran = Top({Type(kFirst, keys), Type(awaited, ""), Type(kFirst, "q")});
        const std::string frame = ran.out.substr(ran.out.rfind("--sort"));
        return frame.find("md3") < frame.find("md4");
    };
    EXPECT_TRUE(order(""));
    EXPECT_FALSE(order("n"));
}

TEST_F(TopTest, FollowsTheWindow) {
    const Ran ran = Top({Resize("BACK/S", 30, 5), Type("\x1b[H2 caches, every 0.1 s, --sort \x1b[K", "q")});
    EXPECT_EQ(ran.code, 0);
    for (const auto& [columns, rows] : std::initializer_list<std::pair<unsigned short, unsigned short>>{
             {1, 1}, {3, 2}, {200, 4}, {20, 3}}) {
        const Ran tiny = Top({Type(std::string(kFirst).substr(0, columns), "q")}, {}, columns, rows);
        EXPECT_EQ(tiny.code, 0);
        const auto begin = tiny.out.rfind("\x1b[H");
        const std::string frame = tiny.out.substr(begin, tiny.out.rfind("\x1b[J") - begin);
        EXPECT_LT(std::count(frame.begin(), frame.end(), '\n'), rows);
    }
}

TEST_F(TopTest, HasColoursWhereTheyAreWanted) {
    EXPECT_THAT(Top({Type(kFirst, "q")}).out, HasSubstr("\x1b[7m"));
    ASSERT_EQ(Tool({"unload", "cachedev_1"}).code, 0);
    EXPECT_THAT(Top({Type("\x1b[31mmd4", "q")}).out, HasSubstr("\x1b[31mmd4"));
    ASSERT_EQ(setenv("NO_COLOR", "1", 1), 0);
    EXPECT_THAT(Top({Type(kFirst, "q")}).out, Not(HasSubstr("m\x1b[m")));
    ASSERT_EQ(setenv("TERM", "dumb", 1), 0);
    const Ran dumb = Top({Type(kFirst, ""), Type(kFirst, "\x03")});
    EXPECT_EQ(dumb.code, 128 + SIGINT);
    EXPECT_THAT(dumb.out, StartsWith("note: this terminal cannot be drawn on"));
    EXPECT_THAT(dumb.out, Not(HasSubstr("\x1b")));
}

TEST_F(TopTest, AnswersItsKeysWhileAToolHangs) {
    Fault("tool.dmsetup", "hang");
    EXPECT_EQ(Top({Type("Reading", "q")}).code, 0);
    EXPECT_EQ(Top({Type("NO ANSWER", "q")}).code, 0);
}

TEST_F(TopTest, IsForTerminalsAlone) {
    EXPECT_EQ(Tool({"top"}).code, kUsage);
    EXPECT_THAT(Tool({"top"}).err, HasSubstr("next: vemocachectl stats --watch 2"));
    EXPECT_EQ(Tool({"top", "--json"}).Json()["error"]["kind"], "usage");
    EXPECT_EQ(Tool({"top", "--watch", "x"}).code, kUsage);
}

}  // namespace
}  // namespace tests
