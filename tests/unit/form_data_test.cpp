// The multipart decoder on bodies built byte by byte: separators split
// across reads, line breaks and zero bytes inside content, cut bodies.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

#include "form/form_data.h"
#include "form/urlencoded.h"

namespace {

class FormDataDecoder : public ::testing::Test {
protected:
    std::string tmp;

    void SetUp() override {
        char dir[] = "/tmp/vorn-mp-XXXXXX";
        tmp = mkdtemp(dir);
        setenv("TMP_DIR", tmp.c_str(), 1);
    }
    void TearDown() override {
        clear();
        std::string cmd = "rm -rf " + tmp;
        (void)!system(cmd.c_str());
    }

    // The table's strings, freed as the interpreter never needs to.
    static void clear() {
        for (int i = 0; i < V_ENT_MAX && ent[i].name; i++) {
            free(ent[i].name);
            free(ent[i].val);
            ent[i].name = ent[i].val = nullptr;
        }
    }

    int decode(const std::string &body) {
        clear();
        std::string path = tmp + "/body";
        std::ofstream(path, std::ios::binary) << body;
        EXPECT_NE(freopen(path.c_str(), "rb", stdin), nullptr);
        return E_POST_parser(ent);
    }

    static std::string slurp(const std::string &path) {
        std::ifstream f(path, std::ios::binary);
        std::stringstream s;
        s << f.rdbuf();
        return s.str();
    }
};

std::string field(const std::string &name, const std::string &value) {
    return "--XyZ\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value +
           "\r\n";
}

std::string upload(const std::string &name, const std::string &file, const std::string &content) {
    return "--XyZ\r\nContent-Disposition: form-data; name=\"" + name + "\"; filename=\"" + file +
           "\"\r\nContent-Type: application/octet-stream\r\n\r\n" + content + "\r\n";
}

const std::string end = "--XyZ--\r\n";

TEST_F(FormDataDecoder, FieldsKeepOrderAndBytes) {
    ASSERT_EQ(decode(field("a", "1") + field("b", "two\r\nlines") + field("c", "") + end), 0);
    EXPECT_STREQ(ent[0].name, "a");
    EXPECT_STREQ(ent[0].val, "1");
    EXPECT_STREQ(ent[1].val, "two\r\nlines");
    EXPECT_STREQ(ent[2].name, "c");
    EXPECT_EQ(ent[2].val, nullptr);   // an empty field makes no variable
    EXPECT_EQ(ent[3].name, nullptr);
}

TEST_F(FormDataDecoder, UploadIsByteExactAndStripped) {
    std::string content("\r\n\n\r--XyZ no\0bin\r\n--XyZz", 22);
    content += std::string(200000, '\xff');   // crosses the read buffer several times
    ASSERT_EQ(decode(upload("f", "C:\\docs\\a.txt", content) + field("after", "x") + end), 0);
    std::string expect = tmp + "/a.txt.." + std::to_string(getpid()) + ".0";
    ASSERT_STREQ(ent[0].val, expect.c_str());
    EXPECT_EQ(slurp(expect), content);
    EXPECT_STREQ(ent[1].val, "x");
}

TEST_F(FormDataDecoder, UnixPathAndEmptyFileName) {
    ASSERT_EQ(decode(upload("f", "../../etc/passwd", "p") + upload("g", "", "") + end), 0);
    std::string expect = tmp + "/passwd.." + std::to_string(getpid()) + ".0";
    EXPECT_STREQ(ent[0].val, expect.c_str());
    EXPECT_STREQ(ent[1].name, "g");
    EXPECT_EQ(ent[1].val, nullptr);
}

TEST_F(FormDataDecoder, BodyCutInsideAFieldIsBroken) {
    EXPECT_EQ(decode(upload("f", "a.bin", "abc").substr(0, 90)), -1);
    EXPECT_STREQ(POST_errmsg, "Broken Input...");
    EXPECT_EQ(
        decode("--XyZ\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\nvalue without end"), -1);
}

TEST_F(FormDataDecoder, PlantedLinkIsNeverWrittenThrough) {
    std::string victim = tmp + "/victim";
    std::ofstream(victim) << "keep";
    std::string planted = tmp + "/a.txt.." + std::to_string(getpid()) + ".0";
    ASSERT_EQ(symlink(victim.c_str(), planted.c_str()), 0);
    EXPECT_EQ(decode(upload("f", "a.txt", "evil") + end), -1);
    EXPECT_NE(std::string(POST_errmsg).find("Cannot create upload file"), std::string::npos);
    EXPECT_EQ(slurp(victim), "keep");
}

TEST_F(FormDataDecoder, HostileShapesEndCleanly) {
    // no boundary at all, and a 100 KB header line
    EXPECT_EQ(decode(""), 0);
    EXPECT_EQ(ent[0].name, nullptr);
    std::string huge =
        "--XyZ\r\nX-Long: " + std::string(100000, 'h') + "\r\n" + field("a", "1").substr(7) + end;
    EXPECT_EQ(decode(huge), 0);
    EXPECT_STREQ(ent[0].val, "1");
    // what follows a separator on its line names no field
    EXPECT_EQ(decode(field("a", "1") + "--XyZ name=\"smuggled\"\r\n" + end), 0);
    EXPECT_STREQ(ent[0].val, "1");
    EXPECT_EQ(ent[1].name, nullptr);
}

}   // namespace
