// The fixture of tests that run the library on a simulated appliance.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "platform/vemocore.h"
#include "support/platform_spy.h"
#include "vemoflashcache.h"

inline std::string ReadWhole(const std::string& path) {
    const std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

inline void WriteWhole(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    ASSERT_TRUE(file.good()) << path;
}

class LibraryTest : public testing::Test {
  protected:
    LibraryTest() {
        spy::state() = {};
        VLIBCErrSetEx(0, "", 0);
    }
};
