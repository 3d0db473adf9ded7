#include <gmock/gmock.h>

#include <random>

#include "fault_injection.h"
#include "hash_owner.h"
#include "support/private_folder.h"

namespace {

using testing::ElementsAre;

constexpr const char* kFormat = "\t%s = %s\n";

int Set(const std::string& file, const char* section, const Pairs& pairs, const char* format = kFormat) {
    return VLIBCFileSetSection(file.c_str(), section, nullptr, MakeHash(pairs).get(), format);
}

int Add(const std::string& file, const char* section, const Pairs& pairs, const char* format = kFormat) {
    return VLIBCFileAddSection(file.c_str(), section, MakeHash(pairs).get(), format);
}

int Remove(const std::string& file, const char* section) {
    return VLIBCFileRemoveSection(file.c_str(), section);
}

class SectionFile : public testing::Test {
  protected:
    PrivateFolder folder_;
    const std::string file_ = folder_ / "test.conf";
};

TEST_F(SectionFile, ReadsWhatPeopleAndCrashesLeaveInIt) {
    using namespace std::string_literals;
    const std::string longText(1 << 20, 'x');
    const struct {
        std::string text;
        std::string value;  // of the key k in the section s
    } cases[] = {
        {"[s]\nk=v\n", "v"},
        {"[s]\r\n \t k \t= a b \t\r\n", "a b"},
        {"[s]\nk=v", "v"},
        {"[s]\nk==x=\n", "=x="},
        {"[s]\nSSDID = \nk =\n", ""},
        {"#[s]\n;k=1\n  [s]\n#k=2\n ; k=3\nk=v\n", "v"},
        {"[s]\nk=first\nk=second\n[t]\nk=t\n[s]\nk=third\n", "first"},
        {"k=nowhere\n[s\nk=torn\n[s]\nk=v\n", "v"},
        {"[s]\na=1\n[torn\nk=of another\n", "(none)"},
        {"[s\0]\nk=n\n[s]\nj\0k=n\nk=v\0w\n"s, "v"},
        {"\0\0\0\n\0"s, "(none)"},
        {"[s]\n" + longText + "\nk=" + longText, longText},
        {"[s]", "(none)"},
        {"", "(none)"},
    };
    for (const auto& [text, value] : cases) {
        WriteText(file_, text);
        EXPECT_EQ(SectionValue(file_, "s", "k"), value) << text.substr(0, 80);
    }
    WriteText(file_, "[b]\nk=1\n[]\nk=2\n[a]\n[b]\nk=3\n[ c|1 ] # remark\n[x\0y]\n[torn\n"s);
    EXPECT_THAT(SectionNames(file_), ElementsAre("b", "", "a", " c|1 "));
}

TEST_F(SectionFile, SaysWhyNothingWasReadOrWritten) {
    VLIBC_SZHASH* hash = VLIBCSzHashAlloc(-1);
    const HashOwner owner(hash);
    VLIBC_SZLIST* list = nullptr;
    const auto failed = [](int result, int code) {
        const bool good = result < 0 && VLIBCErrGet() == code && VLIBCErrorGetLine() > 0;
        VLIBCErrSetEx(0, "", 0);
        return good;
    };
    EXPECT_TRUE(failed(VLIBCFileEnumSection(file_.c_str(), &list), 0x0900));
    EXPECT_TRUE(failed(VLIBCFileGetSection(file_.c_str(), "s", &hash), 0x0900));
    EXPECT_TRUE(failed(Set(file_, "s", {{"k", "v"}}), 0x0900));
    EXPECT_TRUE(failed(Remove(file_, "s"), 0x0900));
    EXPECT_TRUE(failed(Add("/dev/null", "s", {{"k", "v"}}), 0x0900));
    EXPECT_TRUE(failed(VLIBCFileEnumSection("/dev/zero", &list), 0x0900));
    WriteText(file_, "[t]\nk=1\nj=2\nk=3\n");
    EXPECT_TRUE(failed(Set(file_, "s", {{"k", "v"}}), 0x2000));
    EXPECT_EQ(VLIBCFileGetSection(file_.c_str(), "s", &hash), 0);
    EXPECT_EQ(VLIBCErrGet(), 0x2000);
    EXPECT_EQ(Remove(file_, "s"), 0);
    EXPECT_EQ(VLIBCFileGetSection(file_.c_str(), "t", &hash), 2);
    EXPECT_EQ(Set(file_, "t", {{"k", "v"}, {"new", ""}}), 2);
    EXPECT_EQ(Remove(file_, "t"), 1);
    EXPECT_EQ(ReadText(file_), "");
    EXPECT_EQ(Add(file_, "empty", {}), 1);
    EXPECT_EQ(ReadText(file_), "[empty]\n");
}

TEST_F(SectionFile, GetAddsToTheHash) {
    WriteText(file_, "[s]\nk=file\nk=shadowed\nj=file\n");
    const HashOwner hash = MakeHash({{"k", "mine"}, {"other", "mine"}});
    VLIBC_SZHASH* raw = hash.get();
    EXPECT_EQ(VLIBCFileGetSection(file_.c_str(), "s", &raw), 2);
    EXPECT_STREQ(VLIBCSzHashGetValue(raw, "k"), "file");
    EXPECT_STREQ(VLIBCSzHashGetValue(raw, "other"), "mine");
}

TEST_F(SectionFile, WritesKeepWhatTheyWereNotAskedToChange) {
    WriteText(file_, "# head\n[a]\n\tk = 1\n;note\n\tjunk\n  k=2\n\n# about b\n[b]\nk=3\n[a]\nk=4");
    EXPECT_EQ(Set(file_, "a", {{"new", "n"}, {"k", "v"}}), 2);
    EXPECT_EQ(ReadText(file_),
              "# head\n[a]\n\tk = v\n;note\n\tjunk\n  k=2\n\tnew = n\n\n# about b\n[b]\nk=3\n[a]\nk=4");
    EXPECT_EQ(Add(file_, "a", {{"k", "w"}}), 1);  // what is added can be read, also when the section is there
    EXPECT_EQ(SectionValue(file_, "a", "k"), "w");
    EXPECT_EQ(Remove(file_, "a"), 1);  // with its double, which must not come to light
    EXPECT_EQ(ReadText(file_), "# head\n\n# about b\n[b]\nk=3\n");
    EXPECT_EQ(Add(file_, "c", {{"z", "1"}, {"a", "2"}}, nullptr), 2);
    EXPECT_EQ(ReadText(file_), "# head\n\n# about b\n[b]\nk=3\n[c]\nz=1\na=2\n");
    WriteText(file_, "[a]");
    EXPECT_EQ(Set(file_, "a", {{"k", "v"}}), 1);
    EXPECT_EQ(ReadText(file_), "[a]\n\tk = v\n");
}

TEST_F(SectionFile, RefusesWhatWouldNotReadBack) {
    const struct {
        const char* section;
        const char* key;
        const char* value;
        const char* format;
    } cases[] = {
        {"a]\nk=1\n[b", "k", "v", kFormat}, {"a]", "k", "v", kFormat},     {"a\n", "k", "v", kFormat},
        {"a\r", "k", "v", kFormat},         {"s", "k", "v\n[x]", kFormat}, {"s", "k", "v\rj=1", kFormat},
        {"s", "k", " v", kFormat},          {"s", "k", "v\t", kFormat},    {"s", "k\nj", "v", kFormat},
        {"s", "a=b", "v", kFormat},         {"s", "", "v", kFormat},       {"s", " k", "v", kFormat},
        {"s", "#k", "v", kFormat},          {"s", "[k]", "v", kFormat},    {"s", ";k", "v", "%s=%s\n"},
        {"s", "k", "v", "%s=%s"},           {"s", "k", "v", "%s=%s\n\n"},  {"s", "k", "v", "%s=%n%s\n"},
        {"s", "k", "v", "%s=%s%s\n"},       {"s", "k", "v", "%s\n"},       {"s", "k", "v", "%s=%s\n%"},
        {"s", "k", "v", "# %s=%s\n"},       {"s", "k", "v", "%s = x%s\n"}, {"s", "k", "v", "%1$s=%2$s\n"},
    };
    const std::string before = "[s]\n\tk = old\n";
    for (const auto& [section, key, value, format] : cases) {
        WriteText(file_, before);
        VLIBCErrSetEx(0, "", 0);
        EXPECT_LT(Add(file_, section, {{key, value}}, format), 0) << section << key << value << format;
        EXPECT_EQ(VLIBCErrGet(), 0x0D00);
        EXPECT_EQ(ReadText(file_), before);
    }
}

// Texts of the letters that mean something in the file: each write reads back exactly, or is refused, and
// never touches what belongs to others.
TEST_F(SectionFile, NothingCanBeInjected) {
    std::mt19937 random(20240229);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same texts each time
    const std::string letters = "ab=[]#;\"%\\ \t\r\n";
    const auto text = [&] {
        std::string made(random() % 5, ' ');
        for (char& c : made) c = letters[random() % letters.size()];
        return made;
    };
    Add(file_, "guard", {{"k", "untouched"}});
    int written = 0;
    for (int i = 0; i < 4000; ++i) {
        const std::string section = text();
        const std::string key = text();
        const std::string value = text();
        const std::string before = ReadText(file_);
        const size_t sections = SectionNames(file_).size();
        const bool known = SectionValue(file_, section.c_str(), key.c_str()) != "(none)";
        if (Add(file_, section.c_str(), {{key, value}}, i % 2 == 0 ? kFormat : nullptr) < 0) {
            ASSERT_EQ(ReadText(file_), before);
            continue;
        }
        ++written;
        ASSERT_EQ(SectionValue(file_, section.c_str(), key.c_str()), value);
        ASSERT_EQ(SectionValue(file_, "guard", "k"), "untouched");
        ASSERT_LE(SectionNames(file_).size(), sections + (known ? 0 : 1));
        if (i % 3 == 0) {
            ASSERT_EQ(Remove(file_, section.c_str()), 1);
        }
    }
    EXPECT_GT(written, 100);
}

TEST_F(SectionFile, AllSectionsOfAnOldFileCostOneReading) {
    std::string text;
    for (int i = 0; i < 300; ++i) text += "[s" + std::to_string(i) + "]\nk=v\n";
    WriteText(file_, text);
    faults::Begin({.oldFiles = true});
    for (const std::string& name : SectionNames(file_))
        EXPECT_EQ(SectionValue(file_, name.c_str(), "k"), "v");
    faults::End();
    EXPECT_EQ(faults::Opened(), 1);
}

// Neither a file that is read right after it was written nor one from a clock that was set back since is read
// again for each of its sections.
TEST_F(SectionFile, AllSectionsOfAnyFileCostFewReadings) {
    std::string text;
    for (int i = 0; i < 3000; ++i) text += "[s" + std::to_string(i) + "]\nk=v\n";
    for (const int secondsAhead : {0, 3600}) {
        faults::Begin({.coarseStamps = true, .secondsAhead = secondsAhead});
        WriteText(file_, text);
        for (const std::string& name : SectionNames(file_))
            ASSERT_EQ(SectionValue(file_, name.c_str(), "k"), "v");
        faults::End();
        EXPECT_LE(faults::Opened(), 20) << secondsAhead;
    }
}

// Rewritten within one tick of the clock, a file of the same size and inode looks the same: it must be read
// anew.
TEST_F(SectionFile, AFreshTimeStampProvesNothing) {
    faults::Begin({.coarseStamps = true});
    for (int i = 1000; i < 2000; ++i) {
        const std::string value = std::to_string(i);
        WriteText(file_, "[s]\nk=" + value + "\n");
        ASSERT_EQ(SectionValue(file_, "s", "k"), value);
    }
    faults::End();
}

}  // namespace
