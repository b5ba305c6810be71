// Private files in the temporary directory: what the page cases cannot plant
// (a file of another user) and cannot see (the mode of a new file).
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "base/tmp_files.h"

namespace {

class TmpFiles : public ::testing::Test {
protected:
    std::string dir;

    void SetUp() override {
        char tmpl[] = "/tmp/vorn-tmpf-XXXXXX";
        dir = mkdtemp(tmpl);
    }
    void TearDown() override { std::filesystem::remove_all(dir); }
};

TEST_F(TmpFiles, NewFileIsOursAloneWhateverTheUmask) {
    mode_t old = umask(0);
    FILE *f = V_open_tmp((dir + "/V_LOG.1").c_str(), TmpOpen::Truncate);
    umask(old);
    ASSERT_NE(f, nullptr);
    struct stat st;
    ASSERT_EQ(fstat(fileno(f), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    fclose(f);
}

TEST_F(TmpFiles, FileOfAnotherUserIsNeitherCutNorWritten) {
    // another user's file, open to all, planted under our name: writing our
    // trace there would hand it to that user
    std::string path = dir + "/V_LOG.1";
    FILE *plant = fopen(path.c_str(), "w");
    ASSERT_NE(plant, nullptr);
    fputs("theirs\n", plant);
    fclose(plant);
    chmod(path.c_str(), 0666);
    if (chown(path.c_str(), 65534, 65534) != 0)
        GTEST_SKIP() << "needs to run as root to give the file away";
    for (TmpOpen how : {TmpOpen::Truncate, TmpOpen::Append}) {
        errno = 0;
        EXPECT_EQ(V_open_tmp(path.c_str(), how), nullptr);
        EXPECT_TRUE(V_tmp_refused(errno));
    }
    EXPECT_EQ(std::filesystem::file_size(path), 7u);
}

}   // namespace
