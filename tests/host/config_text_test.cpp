// What is looked at before a configuration is parsed: the kind of file, its length, how deep it nests.
#include "host/config/config_text.h"

#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "config_support.h"

namespace
{

using namespace host_test;
using host::CONFIG_DEPTH_MAX;
using host::CONFIG_FILE_MAX;

using ConfigText = ConfigTest;

std::string repeated(const std::string &piece, size_t times)
{
    std::string text;
    for (size_t i = 0; i < times; ++i) {
        text += piece;
    }
    return text;
}

const char TOO_DEEP[] = "nested deeper than 32 levels";

TEST_F(ConfigText, WhatNestsTooDeepIsRefusedBeforeItIsParsed)
{
    constexpr size_t MANY = 40000;
    const std::string deep = repeated("b.", MANY) + "b = 1";
    const std::string cases[] = {
        deep,
        "[" + repeated("a.", MANY) + "a]\n",
        "[[" + repeated("a.", MANY) + "a]]\n",
        "a = " + repeated("[", MANY),
        "a = " + repeated("{a=", MANY),
        "a = " + repeated("{b.c=", MANY),
        "a = " + repeated("[{b.c.d=", MANY),
        repeated("\"a.b\".", MANY) + "a = 1\n",
        // A string or comment in front ends where the parser sees its end: nothing hides behind it.
        R"(a = [ """x""""", {)" + deep,
        R"(a = [ '''x'''', {)" + deep,
        R"(a = [ "", {)" + deep,
        R"(a = [ "\\", {)" + deep,
        R"(a = [ '\', {)" + deep,
        "a = '#' # '\n" + deep,
        "a = \"\"\"\\\"\"\"\"\n" + deep,
    };
    for (const std::string &text : cases) {
        EXPECT_NE(load_error(text).find(TOO_DEEP), std::string::npos) << text.substr(0, 40);
    }
}

TEST_F(ConfigText, WhatIsNoNestingIsNotCounted)
{
    const std::string dots = repeated(".", 1000) + repeated("[{", 1000);
    const std::string cases[] = {
        "'" + dots + "'",
        "\"" + dots + "\"",
        "'''\n" + dots + "'\n'''",
        "\"\"\"\n" + dots + "\\\"\"\n\"\"\"",
        "1 # " + dots,
        "[" + repeated("[1.5, 2.5],\n", 1000) + "]",
        "[" + repeated("{b.c = 1.5},\n", 1000) + "]",
        "1\n" + repeated("[[mribd.more.of.it]]\nb.c = 2.5\n", 1000),
    };
    for (const std::string &value : cases) {
        EXPECT_EQ(load_error("[mribd]\na = " + value + "\n"), "") << value.substr(0, 40);
    }
}

TEST_F(ConfigText, TheDeepestThatIsAllowedLoads)
{
    EXPECT_EQ(load_error("[mribd]\n" + repeated("a.", CONFIG_DEPTH_MAX) + "a = 1\n"), "");
    EXPECT_NE(load_error("[mribd]\n" + repeated("a.", CONFIG_DEPTH_MAX + 1) + "a = 1\n"), "");
    const std::string brackets = repeated("[", CONFIG_DEPTH_MAX) + repeated("]", CONFIG_DEPTH_MAX);
    EXPECT_EQ(load_error("[mribd]\na = " + brackets + "\n"), "");
    EXPECT_EQ(load_error("[mribd]\na = [" + brackets + "]\n"), "f:2:37: " + std::string(TOO_DEEP));
}

TEST_F(ConfigText, TextLongerThanAFileMayBeIsRefused)
{
    EXPECT_EQ(load_error("#" + std::string(CONFIG_FILE_MAX - 1, 'x')), "");
    EXPECT_EQ(load_error("#" + std::string(CONFIG_FILE_MAX, 'x')), "f: the file is longer than 16 MiB");
}

class TemporaryPath
{
public:
    TemporaryPath()
    {
        char folder[] = "/tmp/mcast-config-XXXXXX";
        folder_ = mkdtemp(folder);
        path_ = folder_ + "/file";
    }
    ~TemporaryPath()
    {
        unlink(path_.c_str());
        rmdir(folder_.c_str());
    }
    TemporaryPath(const TemporaryPath &) = delete;
    TemporaryPath &operator=(const TemporaryPath &) = delete;

    const char *path() const
    {
        return path_.c_str();
    }

private:
    std::string folder_;
    std::string path_;
};

TEST_F(ConfigText, APipeIsRefusedWithoutWaitingForItsWriter)
{
    const TemporaryPath pipe;
    ASSERT_EQ(mkfifo(pipe.path(), 0600), 0);
    char error[HOST_CONFIG_ERROR_SIZE];
    EXPECT_EQ(HOST_ConfigLoad(pipe.path(), nullptr, error, sizeof(error)), HOST_FAILED);
    EXPECT_EQ(std::string(error), std::string(pipe.path()) + ": is no ordinary file");
}

TEST_F(ConfigText, AFileThatIsTooLongIsNotRead)
{
    const TemporaryPath file;
    const int fd = open(file.path(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(ftruncate(fd, off_t{1} << 40), 0);
    close(fd);
    char error[HOST_CONFIG_ERROR_SIZE];
    EXPECT_EQ(HOST_ConfigLoad(file.path(), nullptr, error, sizeof(error)), HOST_FAILED);
    EXPECT_EQ(std::string(error), std::string(file.path()) + ": the file is longer than 16 MiB");
}

} // namespace
