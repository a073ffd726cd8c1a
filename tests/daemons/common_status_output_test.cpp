// Status files change as a whole or not at all, and nothing is left beside them.
#include <cerrno>
#include <dirent.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "daemons/common/status_output.h"

using mcastd::write_file_atomically;

namespace
{

class StatusFileWrite : public testing::Test
{
protected:
    StatusFileWrite()
    {
        EXPECT_NE(mkdtemp(folder_.data()), nullptr);
        path_ = folder_ + "/status";
    }
    ~StatusFileWrite() override
    {
        for (const std::string &name : names()) {
            remove((folder_ + "/" + name).c_str());
        }
        rmdir(folder_.c_str());
    }

    std::vector<std::string> names() const
    {
        std::vector<std::string> found;
        DIR *opened = opendir(folder_.c_str());
        while (const dirent *entry = readdir(opened)) {
            if (entry->d_name[0] != '.') {
                found.emplace_back(entry->d_name);
            }
        }
        closedir(opened);
        return found;
    }
    std::string content() const
    {
        std::ifstream file(path_);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::string folder_ = testing::TempDir() + "statusXXXXXX";
    std::string path_;
};

TEST_F(StatusFileWrite, IsReplacedAsAWholeAndReadableByAll)
{
    ASSERT_TRUE(write_file_atomically(path_, "a long first text\n"));
    ASSERT_TRUE(write_file_atomically(path_, "second\n"));
    EXPECT_EQ(content(), "second\n");
    EXPECT_EQ(names(), std::vector<std::string>{"status"});
    struct stat found = {};
    ASSERT_EQ(stat(path_.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777, 0644u);
}

TEST_F(StatusFileWrite, ThatCannotBeReplacedLeavesNothingBeside)
{
    ASSERT_EQ(mkdir(path_.c_str(), 0755), 0);
    EXPECT_FALSE(write_file_atomically(path_, "text\n"));
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(names(), std::vector<std::string>{"status"});
}

TEST_F(StatusFileWrite, WithoutAFolderFails)
{
    EXPECT_FALSE(write_file_atomically(folder_ + "/none/status", "text\n"));
    EXPECT_EQ(errno, ENOENT);
}

} // namespace
