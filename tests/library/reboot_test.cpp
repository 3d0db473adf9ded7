// An appliance that is killed in the middle of a flush and booted again.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

// A program whose output can be read line by line; killed in the end if need be.
class Program {
  public:
    explicit Program(std::vector<std::string> words) {
        int ends[2] = {-1, -1};
        if (pipe2(ends, O_CLOEXEC) != 0) {
            return;
        }
        posix_spawn_file_actions_t files;
        posix_spawn_file_actions_init(&files);
        posix_spawn_file_actions_adddup2(&files, ends[1], STDOUT_FILENO);
        std::vector<char*> arguments;
        arguments.reserve(words.size() + 1);
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        if (posix_spawn(&process_, arguments[0], &files, nullptr, arguments.data(), environ) != 0) {
            process_ = -1;
        }
        posix_spawn_file_actions_destroy(&files);
        close(ends[1]);
        output_ = fdopen(ends[0], "r");
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program() {
        Kill();
        Wait();
        if (output_ != nullptr) {
            std::fclose(output_);
        }
    }
    std::string Line() {
        char line[256] = "";
        return output_ == nullptr || std::fgets(line, sizeof line, output_) == nullptr ? "" : line;
    }
    void Kill() const {
        if (process_ > 0) {
            kill(process_, SIGKILL);
        }
    }
    // The exit code, 128 + signal when one ended it, -1 when it was waited for before.
    int Wait() {
        int status = 0;
        const bool waited = process_ > 0 && waitpid(process_, &status, 0) == process_;
        process_ = -1;
        return !waited ? -1 : WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }

  private:
    pid_t process_ = -1;
    std::FILE* output_ = nullptr;
};

class RebootTest : public testing::TestWithParam<const char*> {
  protected:
    RebootTest() : state_("/tmp/reboot-test-XXXXXX") {
        if (mkdtemp(state_.data()) == nullptr) {
            std::abort();
        }
    }
    ~RebootTest() override {
        std::error_code ignored;
        std::filesystem::remove_all(state_, ignored);
    }
    std::string state_;
};

TEST_P(RebootTest, NothingThatWasOnTheDiskIsLost) {
    const std::string bin = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    {
        Program appliance({bin + "/vemo-appliance", "--state", state_, bin + "/reboot_session", "flush"});
        ASSERT_EQ(appliance.Line(), "in the pause\n");
        Program fault({bin + "/vemo-appliance", "fault", "--state", state_, "cleaning", GetParam()});
        ASSERT_EQ(fault.Wait(), 0);
        appliance.Kill();
        EXPECT_EQ(appliance.Wait(), 128 + SIGKILL);
    }
    Program appliance({bin + "/vemo-appliance", "--state", state_, bin + "/reboot_session", "check"});
    EXPECT_EQ(appliance.Line(), "nothing lost\n");
    EXPECT_EQ(appliance.Wait(), 0);
}

// None, some, and all of the blocks have come to the volume.
INSTANTIATE_TEST_SUITE_P(Cleaned, RebootTest, testing::Values("0", "73", "200"));

}  // namespace
