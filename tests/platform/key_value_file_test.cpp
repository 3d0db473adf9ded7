#include <gtest/gtest.h>

#include <string>

#include "hash_owner.h"
#include "support/private_folder.h"

namespace {

class KeyValueFile : public testing::Test {
  protected:
    std::string Get(const char* key, int size = 64) const {
        std::string buffer(64, '?');
        const int result = VLIBCFileGetKeyValue(file_.c_str(), key, buffer.data(), size, 0);
        return result > 0 ? buffer.substr(0, buffer.find('\0')) : "(" + std::to_string(result) + ")";
    }
    int Set(const char* key, const char* value) const {
        return VLIBCFileSetKeyValue(file_.c_str(), key, value, 0);
    }

    PrivateFolder folder_;
    const std::string file_ = folder_ / "test.conf";
};

TEST_F(KeyValueFile, ReadsTheFirstLineOfAKey) {
    using namespace std::string_literals;
    EXPECT_EQ(Get("k"), "(-1)");
    EXPECT_EQ(VLIBCErrGet(), 0x0900);
    WriteText(
        file_,
        "#c=1\nk=\"a b\"\nk=2\nblank= x \nquote=\"\none=\"\"\"\nempty=\nnul=a\0b\n spaced =s\nlast=\"1\" "s);
    EXPECT_EQ(Get("k"), "a b");
    EXPECT_EQ(Get("k", 3), "a ");
    EXPECT_EQ(Get("k", 1), "");
    EXPECT_EQ(Get("k", 0), "(-1)");
    EXPECT_EQ(Get("blank"), " x ");
    EXPECT_EQ(Get("quote"), "\"");
    EXPECT_EQ(Get("one"), "\"");
    EXPECT_EQ(Get("empty"), "");
    EXPECT_EQ(Get("spaced"), "s");
    EXPECT_EQ(Get("last"), "\"1\" ");
    for (const char* absent : {"#c", "nul", "", "kk"}) EXPECT_EQ(Get(absent), "(0)") << absent;
}

TEST_F(KeyValueFile, WritesWhatReadsBackAndNothingElse) {
    for (const std::string value : {"yes", "", " v ", "\"", "\"\"", "\"v\"", "a=b", "#", "caf\xc3\xa9"}) {
        ASSERT_EQ(Set("k", value.c_str()), 1) << value;
        EXPECT_EQ(Get("k"), value);
    }
    WriteText(file_, "# head\nk=1\nother\nk=2");
    EXPECT_EQ(Set("k", "v"), 1);
    EXPECT_EQ(Set("new", "n"), 1);
    const std::string written = "# head\nk=v\nother\nk=2\nnew=n\n";
    EXPECT_EQ(ReadText(file_), written);
    const std::pair<const char*, const char*> refused[] = {
        {"k", "v\nj=1"}, {"k", "v\r"}, {"a=b", "v"}, {"", "v"}, {" k", "v"}, {"k\n", "v"}, {"#k", "v"}};
    for (const auto& [key, value] : refused) {
        EXPECT_EQ(Set(key, value), -1) << key;
        EXPECT_EQ(VLIBCErrGet(), 0x0D00);
    }
    EXPECT_EQ(ReadText(file_), written);
    EXPECT_EQ(VLIBCFileRemoveKey(file_.c_str(), "k"), 1);  // with its double, which must not come to light
    EXPECT_EQ(VLIBCFileRemoveKey(file_.c_str(), "k"), 0);
    EXPECT_EQ(ReadText(file_), "# head\nother\nnew=n\n");
    EXPECT_EQ(VLIBCFileRemoveKey((file_ + ".absent").c_str(), "k"), -1);
}

}  // namespace
