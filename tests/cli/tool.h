// Runs the real tool, as an argument vector, and keeps what came of it.
#pragma once

#include <sys/types.h>

#include <array>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "cli/json.h"

namespace tests {

using Words = std::vector<std::string>;

struct Ran {
    int code = -1;  // the exit code; 128 + signal
    std::string out;
    std::string err;

    // The last line of standard output, where each line must be a JSON object.
    [[nodiscard]] tests::Json Json() const;
};

// Any program, standard input from /dev/null.
Ran RunProgram(const Words& words);

// vemocachectl with these arguments.
Ran Tool(Words arguments);

// Exit codes beside 0 and that of a failure.
inline constexpr int kUsage = 2;
inline constexpr int kNo = 3;

// vemocachectl with --json, which must end with this exit code; its answer.
Json Answer(Words arguments, int code = 0);

// The usual cache: /dev/md3 in front of /dev/vg1/volume_1, 64 MiB, write-back.
void CreateCache();

// Its dirty blocks.
int DirtyBlocks();

inline constexpr int kDirty = 20;

// The usual cache with that many dirty blocks of 64 KiB, which stay dirty until the kernel may clean;
// /tmp/data holds the same bytes.
void CreateDirtyCache();
bool VolumeHoldsData();

// Sets a fault of the appliance on which the test runs.
void Fault(const std::string& name, const std::string& value);

// Faults, each with its value, at which a creation fails half-way.
inline constexpr std::array<std::pair<const char*, const char*>, 2> kCreationFaults = {
    {{"tool.flashcache_create", "fail"}, {"knob.reclaim_policy", "reject"}}};

// vemocachectl on a terminal of its own, where `typed` is entered once `prompt` has come; out holds all
// that the terminal showed. The terminal is so many columns wide; 0: its width is not known.
Ran ToolOnTerminal(Words arguments, const std::string& prompt, const std::string& typed,
                   unsigned short columns = 0);

// The same, where what is typed is made once the prompt has come.
Ran ToolOnTerminal(Words arguments, const std::string& prompt, const std::function<std::string()>& type,
                   unsigned short columns = 0);

// What happens on a terminal: once the text has come, behind what came before, the rest is done; what it
// makes is typed.
struct Step {
    std::string awaited;
    std::function<std::string(pid_t program)> act;
};

// Any program on a terminal of its own.
Ran OnTerminal(Words words, const std::vector<Step>& steps, unsigned short columns, unsigned short rows);

// Whether some process runs a command that begins so.
bool Runs(const std::string& command);

// vemocachectl that runs while the test goes on, standard output, and the remarks if wanted, read line by
// line.
class RunningTool {
  public:
    explicit RunningTool(Words arguments, bool withRemarks = false);
    ~RunningTool();
    RunningTool(const RunningTool&) = delete;
    RunningTool& operator=(const RunningTool&) = delete;

    // The next line; empty at the end.
    std::string NextLine();
    void Signal(int signal) const;
    int Wait();  // the exit code, as in Ran

  private:
    pid_t pid_ = -1;
    int out_ = -1;
    std::string unread_;
};

// Whether the tool is beyond reach when something else is mounted there.
bool ToolLiesBelow(const std::string& folder);

}  // namespace tests
