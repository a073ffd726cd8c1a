/*
 * Levels are counted without understanding more of TOML than where strings and comments end:
 *
 *     list = [ { a.b.c = [ 1 ] }, 2 ]
 *            1 2  3 4   5          1          a bracket is a level, and so is a dot in front of what it opens
 *
 * A comma, and a new line outside of brackets, begins a new key. A dot of a number counts too, which makes no
 * difference to anybody.
 */
#include "host/config/config_text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/config/config_reader.h"

namespace host
{
namespace
{

constexpr char TOO_LONG[] = "the file is longer than 16 MiB";
static_assert(CONFIG_FILE_MAX == 16 << 20, "the text above says so");

// Behind the string that begins at the place. What has no end ends with its line, or with the text.
size_t behind_string(std::string_view text, size_t at)
{
    const char quote = text[at];
    const bool escapes = quote == '"';
    const std::string_view fence = escapes ? R"(""")" : "'''";
    const bool long_one = text.substr(at, 3) == fence;
    for (at += long_one ? 3 : 1; at < text.size(); ++at) {
        if (escapes && text[at] == '\\') {
            ++at;
        } else if (long_one && text.substr(at, 3) == fence) {
            // Up to two quotes right before the end belong to the string.
            const size_t end = text.find_first_not_of(quote, at + 3);
            return std::min({end, at + 5, text.size()});
        } else if (!long_one && (text[at] == quote || text[at] == '\n')) {
            return at + (text[at] == quote ? 1 : 0);
        }
    }
    return text.size();
}

// The levels at a place of the text.
class Levels
{
public:
    // Each returns false when that is too deep.
    bool open()
    {
        if (brackets_ == opened_by_.size()) {
            return false;
        }
        opened_by_[brackets_++] = dots_ + 1;
        open_levels_ += dots_ + 1;
        dots_ = 0;
        return fits();
    }
    bool dot()
    {
        ++dots_;
        return fits();
    }

    void close()
    {
        if (brackets_ > 0) {
            open_levels_ -= opened_by_[--brackets_];
        }
        dots_ = 0;
    }
    void next_key()
    {
        dots_ = 0;
    }
    void next_line()
    {
        dots_ = brackets_ == 0 ? 0 : dots_;
    }

private:
    bool fits() const
    {
        return open_levels_ + dots_ <= CONFIG_DEPTH_MAX;
    }

    std::array<size_t, CONFIG_DEPTH_MAX> opened_by_{}; // levels that each open bracket added
    size_t brackets_ = 0;
    size_t open_levels_ = 0;
    size_t dots_ = 0;
};

// Where the text becomes too deep; its size when it does not.
size_t find_too_deep(std::string_view text)
{
    Levels levels;
    size_t at = 0;
    while (at < text.size()) {
        const char c = text[at];
        if (c == '"' || c == '\'') {
            at = behind_string(text, at);
            continue;
        }
        if (c == '#') {
            at = std::min(text.find('\n', at), text.size());
            continue;
        }
        if ((c == '.' && !levels.dot()) || ((c == '[' || c == '{') && !levels.open())) {
            return at;
        }
        if (c == ']' || c == '}') {
            levels.close();
        } else if (c == ',') {
            levels.next_key();
        } else if (c == '\n') {
            levels.next_line();
        }
        ++at;
    }
    return at;
}

ConfigPosition position_at(std::string_view text, size_t at)
{
    ConfigPosition position{1, 1};
    for (const char c : text.substr(0, at)) {
        position = c == '\n' ? ConfigPosition{position.line + 1, 1}
                             : ConfigPosition{position.line, position.column + 1};
    }
    return position;
}

const char *kind_of(mode_t mode)
{
    return S_ISDIR(mode) ? "is a folder, not a file" : "is no ordinary file";
}

} // namespace

std::string read_config_file(const char *path)
{
    const auto fail = [path](const char *text) { throw ConfigError(path, {}, text); };
    struct Closed {
        int fd;
        ~Closed()
        {
            if (fd >= 0) {
                close(fd);
            }
        }
    };
    // Opening a pipe would wait for its other end.
    const Closed file{open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)};
    struct stat status;
    if (file.fd < 0 || fstat(file.fd, &status) != 0) {
        fail(strerrordesc_np(errno));
    }
    if (!S_ISREG(status.st_mode)) {
        fail(kind_of(status.st_mode));
    }
    if (static_cast<uint64_t>(status.st_size) > CONFIG_FILE_MAX) {
        fail(TOO_LONG);
    }
    std::string text;
    char block[16 * 1024];
    ssize_t got = 0;
    while ((got = read(file.fd, block, sizeof(block))) > 0) {
        text.append(block, static_cast<size_t>(got));
        if (text.size() > CONFIG_FILE_MAX) { // it grows while it is read
            fail(TOO_LONG);
        }
    }
    if (got < 0) {
        fail(strerrordesc_np(errno));
    }
    return text;
}

void check_config_text(std::string_view name, std::string_view text)
{
    if (text.size() > CONFIG_FILE_MAX) {
        throw ConfigError(name, {}, TOO_LONG);
    }
    const size_t at = find_too_deep(text);
    if (at < text.size()) {
        throw ConfigError(name, position_at(text, at),
                          "nested deeper than " + std::to_string(CONFIG_DEPTH_MAX) + " levels");
    }
}

} // namespace host
