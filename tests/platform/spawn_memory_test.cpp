// Programs that cannot be started for want of memory: whatever was made for their start is given back.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <spawn.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <iterator>

#include "platform/vemocore.h"

namespace {

std::atomic<int> callsLeft = 0;   // until the one that fails, 0: none does
std::atomic<int> unreleased = 0;  // tests of the same program start programs in many threads

// What is asked for while a start is being prepared; hit when its turn has come.
template <typename... Parameters, typename... Arguments>
int MayFail(const char* name, int (* /*ours*/)(Parameters...), Arguments... arguments) {
    if (callsLeft > 0 && --callsLeft == 0) return ENOMEM;
    return reinterpret_cast<int (*)(Parameters...)>(dlsym(RTLD_NEXT, name))(arguments...);
}

// The result of a call that makes or releases something, counted when it has.
int Count(int change, int result) {
    unreleased += result == 0 ? change : 0;
    return result;
}

std::ptrdiff_t OpenDescriptors() {
    using Entries = std::filesystem::directory_iterator;
    return std::distance(Entries("/proc/self/fd"), Entries());
}

bool ExecIsRefused() {
    return VLIBCExecl("/bin/true", VLIBC_EXEC_WAIT, nullptr) < 0;
}

bool PopenIsRefused() {
    FILE* const stream = VLIBCPopen("/bin/true", "r", nullptr);
    return stream == nullptr || VLIBCPclose(stream) != 0;
}

TEST(ProgramWithoutMemory, GivesBackWhatItsStartTook) {
    for (const auto isRefused : {ExecIsRefused, PopenIsRefused}) {
        ASSERT_FALSE(isRefused());
        const std::ptrdiff_t descriptors = OpenDescriptors();
        int refused = 0;
        for (bool hit = true; hit; ++refused) {
            callsLeft = refused + 1;
            const bool failed = isRefused();
            hit = callsLeft == 0;
            callsLeft = 0;
            EXPECT_EQ(failed, hit) << "call " << refused + 1;
            EXPECT_EQ(failed ? errno : ENOMEM, ENOMEM) << "call " << refused + 1;
            EXPECT_EQ(unreleased, 0) << "call " << refused + 1;
            EXPECT_EQ(OpenDescriptors(), descriptors) << "call " << refused + 1;
        }
        EXPECT_GE(refused, 6);
    }
}

}  // namespace

extern "C" {

int posix_spawn_file_actions_init(posix_spawn_file_actions_t* actions) noexcept {
    return Count(1, MayFail("posix_spawn_file_actions_init", &posix_spawn_file_actions_init, actions));
}
int posix_spawnattr_init(posix_spawnattr_t* attributes) noexcept {
    return Count(1, MayFail("posix_spawnattr_init", &posix_spawnattr_init, attributes));
}
int posix_spawn_file_actions_destroy(posix_spawn_file_actions_t* actions) noexcept {
    const auto real = reinterpret_cast<decltype(&posix_spawn_file_actions_destroy)>(
        dlsym(RTLD_NEXT, "posix_spawn_file_actions_destroy"));
    return Count(-1, real(actions));
}
int posix_spawnattr_destroy(posix_spawnattr_t* attributes) noexcept {
    const auto real =
        reinterpret_cast<decltype(&posix_spawnattr_destroy)>(dlsym(RTLD_NEXT, "posix_spawnattr_destroy"));
    return Count(-1, real(attributes));
}
int posix_spawn_file_actions_adddup2(posix_spawn_file_actions_t* actions, int from, int to) noexcept {
    return MayFail("posix_spawn_file_actions_adddup2", &posix_spawn_file_actions_adddup2, actions, from, to);
}
int posix_spawn_file_actions_addopen(posix_spawn_file_actions_t* actions, int fd, const char* path, int flags,
                                     mode_t mode) noexcept {
    return MayFail("posix_spawn_file_actions_addopen", &posix_spawn_file_actions_addopen, actions, fd, path,
                   flags, mode);
}
int posix_spawn_file_actions_addclosefrom_np(posix_spawn_file_actions_t* actions, int from) noexcept {
    return MayFail("posix_spawn_file_actions_addclosefrom_np", &posix_spawn_file_actions_addclosefrom_np,
                   actions, from);
}

}  // extern "C"
