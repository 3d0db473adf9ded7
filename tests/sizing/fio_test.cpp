// What fio itself writes, where it is installed.
#include <unistd.h>

#include <cstdlib>

#include "tests/sizing/reading.h"

namespace sizing {
namespace {

bool HasFio() {
    return std::system("command -v fio >/dev/null") == 0;
}

TEST(Fio, ItsOwnLogReadsBackAsTheJobSays) {
    if (!HasFio()) {
        GTEST_SKIP() << "fio is not installed: what it writes is known from its description alone";
    }
    const PrivateFolder folder;
    const std::string data = folder / "data";
    const std::string command =
        "cd " + (folder / "") +
        " && fio --name=job --ioengine=psync --rw=randrw --rwmixread=70 --bs=8k --size=1m"
        " --fsync=16 --filename=" +
        data + " --write_iolog=" + (folder / "log") + " >/dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0);
    const Reading reading = ReadFiles({folder / "log"});
    EXPECT_EQ(reading.report.bad, 0U);
    std::uint64_t bytes = 0;
    std::uint64_t flushes = 0;
    for (const Told& told : reading.requests) {
        EXPECT_EQ(told.volume, data);
        flushes += told.kind == Kind::kFlush ? 1 : 0;
        bytes += told.length;
        EXPECT_LE(told.offset + told.length, 1U << 20U);
    }
    EXPECT_EQ(bytes, 1U << 20U);
    EXPECT_GT(flushes, 0U);
}

}  // namespace
}  // namespace sizing
