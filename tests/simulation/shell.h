// Runs shell commands, as the tests of the appliance use its programs.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

struct ShellResult {
    int status = -1;     // exit code, 128 and the signal when one ended it
    std::string output;  // standard output and error together
};

inline ShellResult Shell(const std::string& script) {
    ShellResult result;
    FILE* stream = popen(("exec 2>&1\n" + script).c_str(), "r");
    if (stream == nullptr) {
        return result;
    }
    char buffer[4096];
    for (size_t length = 0; (length = fread(buffer, 1, sizeof buffer, stream)) > 0;) {
        result.output.append(buffer, length);
    }
    const int status = pclose(stream);
    result.status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    return result;
}

inline std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}
