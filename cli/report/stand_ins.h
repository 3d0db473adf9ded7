// Names that are nobody's business, replaced by others that keep their relations: one name has one stand-in
// in all texts, and two names never share one.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

class StandIns {
  public:
    enum class Kind { kSsd, kVolume, kDisk, kGroup, kMount, kHost, kCache, kSerial, kId };

    // A name gets a stand-in; one that has it already, one that is empty, or "/" and "." alone, nothing.
    void Add(Kind kind, const std::string& name);

    // The parts of a device's path below /dev: the last one as this kind, the folders above as groups.
    void AddDevice(Kind kind, const std::string& path);

    // The parts of a mount's path.
    void AddMount(const std::string& path);

    // The text with all names, and all UUIDs whatever they are of, replaced where they stand as whole words:
    // "md3" is no part of "md30". What lies below a mount is a file of somebody's and gets a stand-in, too.
    [[nodiscard]] std::string Replace(std::string_view text);

    // How many names have one.
    [[nodiscard]] std::size_t Size() const { return standIns_.size(); }

  private:
    const std::string& StandInOf(Kind kind, const std::string& name);
    [[nodiscard]] std::size_t NameAt(std::string_view text, std::size_t at) const;
    std::size_t ReplaceFile(std::string_view text, std::size_t at, std::string& result);

    std::map<std::string, std::string, std::less<>> standIns_;
    std::map<std::string, std::string, std::less<>> files_;  // what lies below mounts
    std::vector<std::string> mounts_;
    std::vector<std::size_t> lengths_;  // of the names, the longest first
    std::map<Kind, std::uint64_t> used_;
};

}  // namespace cli
