// A folder of a test's own, gone with the test.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

class PrivateFolder {
  public:
    PrivateFolder() {
        // In memory where possible: the tests write, and sync, thousands of times.
        const bool shared = std::filesystem::is_directory("/dev/shm");
        std::string name =
            (shared ? "/dev/shm" : std::filesystem::temp_directory_path().string()) + "/platform-XXXXXX";
        path_ = mkdtemp(name.data());
    }
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;
    ~PrivateFolder() { std::filesystem::remove_all(path_); }

    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    long EntryCount() const {
        return std::distance(std::filesystem::directory_iterator(path_),
                             std::filesystem::directory_iterator());
    }

  private:
    std::string path_;
};

// Overwrites in place, as an editor might: the file stays the same inode.
inline void WriteText(const std::string& path, std::string_view text) {
    std::ofstream(path, std::ios::binary) << text;
}

inline std::string ReadText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}
