// A volume with an ext4 file system, mounted where the appliance has it.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <string>

inline constexpr const char* kVolume = "/volume1";

inline void MountVolume() {
    ASSERT_EQ(std::system("mkfs.ext4 -q -O ^has_journal /dev/vg1/volume_1"), 0);
    ASSERT_EQ(mount("/dev/vg1/volume_1", kVolume, "ext4", 0, ""), 0);
}

inline void UnmountVolume() {
    EXPECT_EQ(umount2(kVolume, 0), 0);
}

// Makes a file, and the folders above it, with so many bytes of data.
inline void MakeFile(const std::string& path, std::size_t bytes = 0) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(fd, 0) << path;
    const std::string data(bytes, 'x');
    ASSERT_EQ(write(fd, data.data(), data.size()), static_cast<ssize_t>(bytes));
    close(fd);
}
