/*
 * The JSON of status texts and answers.
 *
 *     Json json;
 *     json.open(nullptr, '{');
 *     json.text("daemon", "gmpd");
 *     json.open("interfaces", '[');          one line each: json.open(nullptr, '{', true)
 *     json.close(']');
 *     json.close('}');
 *     return json.take();
 */
#ifndef DAEMONS_COMMON_JSON_H
#define DAEMONS_COMMON_JSON_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>

namespace mcastd
{

// Builds JSON text: objects and lists nest, commas and indentation follow by themselves. What is opened in
// one line stays in it, with all that it holds.
class Json
{
public:
    // Begins an object, bracket {, or a list, bracket [; what an object holds has names, what a list holds
    // has none (NULL).
    void open(const char *name, char bracket, bool one_line = false)
    {
        begin(name);
        text_ += bracket;
        ++depth_;
        first_ = true;
        if (one_line && line_depth_ == 0) {
            line_depth_ = depth_;
        }
    }
    void close(char bracket)
    {
        const bool in_line = line_depth_ != 0;
        if (line_depth_ == depth_) {
            line_depth_ = 0;
        }
        --depth_;
        if (!first_ && !in_line) {
            new_line();
        }
        text_ += bracket;
        first_ = false;
    }
    void text(const char *name, const std::string &value)
    {
        begin(name);
        quote(value);
    }
    void number(const char *name, uint64_t value)
    {
        begin(name);
        text_ += std::to_string(value);
    }
    void truth(const char *name, bool value)
    {
        begin(name);
        text_ += value ? "true" : "false";
    }
    void null(const char *name)
    {
        begin(name);
        text_ += "null";
    }
    // What was written since the last call, of a text that is made in parts.
    std::string take_part()
    {
        return std::exchange(text_, {});
    }
    // The text, complete when everything that was opened is closed; the writer is empty then.
    std::string take()
    {
        return std::move(text_) + "\n";
    }

private:
    void begin(const char *name)
    {
        if (!first_) {
            text_ += line_depth_ != 0 ? ", " : ",";
        }
        if (depth_ > 0 && line_depth_ == 0) {
            new_line();
        }
        first_ = false;
        if (name != nullptr) {
            quote(name);
            text_ += ": ";
        }
    }
    void new_line()
    {
        text_ += '\n';
        text_.append(2 * depth_, ' ');
    }
    // Names from outside may hold nearly any byte.
    void quote(const std::string &value)
    {
        text_ += '"';
        for (const char c : value) {
            if (c == '"' || c == '\\') {
                text_ += '\\';
                text_ += c;
            } else if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) >= 0x7f) {
                char escaped[8];

                snprintf(escaped, sizeof(escaped), "\\u%04x",
                         static_cast<unsigned>(static_cast<unsigned char>(c)));
                text_ += escaped;
            } else {
                text_ += c;
            }
        }
        text_ += '"';
    }

    std::string text_;
    size_t depth_ = 0;
    size_t line_depth_ = 0; // depth of the outermost thing that is kept in one line
    bool first_ = true;
};

} // namespace mcastd

#endif
