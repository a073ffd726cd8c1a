// Status files change as a whole or not at all, and nothing is left beside them.
#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <new>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "daemons/common/atomic_file.h"
#include "daemons/common/status_output.h"

namespace
{

bool write_whole(const std::string &path, const std::string &text)
{
    mcastd::AtomicFile file;
    return file.open(path) && file.append(text) && file.commit();
}

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
    ASSERT_TRUE(write_whole(path_, "a long first text\n"));
    ASSERT_TRUE(write_whole(path_, "second\n"));
    EXPECT_EQ(content(), "second\n");
    EXPECT_EQ(names(), std::vector<std::string>{"status"});
    struct stat found = {};
    ASSERT_EQ(stat(path_.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777, 0644u);
}

TEST_F(StatusFileWrite, ThatCannotBeReplacedLeavesNothingBeside)
{
    ASSERT_EQ(mkdir(path_.c_str(), 0755), 0);
    EXPECT_FALSE(write_whole(path_, "text\n"));
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(names(), std::vector<std::string>{"status"});
}

TEST_F(StatusFileWrite, ThatIsGivenUpLeavesTheOldFileAlone)
{
    ASSERT_TRUE(write_whole(path_, "old\n"));
    {
        mcastd::AtomicFile file;
        ASSERT_TRUE(file.open(path_) && file.append("new\n"));
        EXPECT_EQ(names().size(), 2u);
    }
    EXPECT_EQ(content(), "old\n");
    EXPECT_EQ(names(), std::vector<std::string>{"status"});
}

// One call makes one part, and the file is in place with the last one.
TEST_F(StatusFileWrite, InPartsIsThereWhenItIsWhole)
{
    mcastd::Reactor reactor;
    mcastd::StatusOutput output(reactor);
    int made = 0;
    output.write(path_, [&made](std::string *text) {
        *text += "piece " + std::to_string(++made) + "\n";
        return made < 3;
    });
    EXPECT_EQ(made, 1);
    EXPECT_TRUE(output.busy());
    EXPECT_TRUE(output.go_on());
    EXPECT_EQ(made, 2);
    EXPECT_EQ(content(), "");
    EXPECT_FALSE(output.go_on());
    EXPECT_EQ(made, 3);
    EXPECT_FALSE(output.busy());
    EXPECT_FALSE(output.go_on());
    EXPECT_EQ(made, 3);
    EXPECT_EQ(content(), "piece 1\npiece 2\npiece 3\n");
    EXPECT_EQ(names(), std::vector<std::string>{"status"});
}

TEST_F(StatusFileWrite, ForWhichThereIsNoMemoryIsGivenUp)
{
    mcastd::Reactor reactor;
    mcastd::StatusOutput output(reactor);
    int made = 0;
    const auto parts = [&made](std::string *text) {
        *text += "part\n";
        if (++made == 2) {
            throw std::bad_alloc();
        }
        return made < 3;
    };
    output.write(path_, parts);
    EXPECT_THROW(output.go_on(), std::bad_alloc);
    EXPECT_FALSE(output.busy());
    EXPECT_EQ(names(), std::vector<std::string>{});
    output.write(path_, parts);
    EXPECT_EQ(content(), "part\n");
}

TEST_F(StatusFileWrite, WithoutAFolderFails)
{
    EXPECT_FALSE(write_whole(folder_ + "/none/status", "text\n"));
    EXPECT_EQ(errno, ENOENT);
}

// Standard output is a pipe that is full again and again, and its reader takes all that is in it.
TEST(PrintedStatus, ComesWholeHoweverOftenItsReaderIsSlow)
{
    constexpr size_t LONG = 400000; // several times what a pipe holds
    mcastd::Reactor reactor;
    const int standard_output = dup(STDOUT_FILENO);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
    fflush(stdout);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    size_t printed[2] = {};
    {
        mcastd::StatusOutput output(reactor);
        for (size_t &each : printed) {
            output.write("", mcastd::one_part(std::string(LONG, 'x')));
            for (int round = 0; round < 100; ++round) {
                char bytes[4096];
                ssize_t size;
                while ((size = read(ends[0], bytes, sizeof(bytes))) > 0) {
                    each += static_cast<size_t>(size);
                }
                reactor.run_once(0);
            }
        }
    }
    dup2(standard_output, STDOUT_FILENO);
    close(standard_output);
    close(ends[0]);
    EXPECT_EQ(printed[0], LONG);
    EXPECT_EQ(printed[1], LONG);
}

// However long the text is, what waits for its reader is one part.
TEST(PrintedStatus, MakesNoPartBeforeTheOneBeforeWasTaken)
{
    constexpr size_t LONG = 100000; // more than a pipe holds
    mcastd::Reactor reactor;
    const int standard_output = dup(STDOUT_FILENO);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
    fflush(stdout);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    int made = 0;
    int made_unread = 0;
    size_t printed = 0;
    {
        mcastd::StatusOutput output(reactor);
        output.write("", [&made](std::string *text) {
            text->append(LONG, 'x');
            return ++made < 3;
        });
        for (int round = 0; round < 10; ++round) {
            output.go_on();
            reactor.run_once(0);
        }
        made_unread = made;
        while (output.busy()) {
            char bytes[4096];
            ssize_t size;
            while ((size = read(ends[0], bytes, sizeof(bytes))) > 0) {
                printed += static_cast<size_t>(size);
            }
            reactor.run_once(0);
            output.go_on();
        }
        char bytes[4096];
        ssize_t size;
        while ((size = read(ends[0], bytes, sizeof(bytes))) > 0) {
            printed += static_cast<size_t>(size);
        }
    }
    dup2(standard_output, STDOUT_FILENO);
    close(standard_output);
    close(ends[0]);
    EXPECT_EQ(made_unread, 1);
    EXPECT_EQ(made, 3);
    EXPECT_EQ(printed, 3 * LONG);
}

} // namespace
