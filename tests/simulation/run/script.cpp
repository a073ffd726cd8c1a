#include "tests/simulation/run/script.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace sim
{
namespace
{

Words split(const std::string &line)
{
    std::istringstream text(line.substr(0, line.find('#')));
    Words words;
    for (std::string word; text >> word;) {
        words.push_back(word);
    }
    return words;
}

std::string joined(const Words &words)
{
    std::string line;
    for (const std::string &word : words) {
        line += (line.empty() ? "" : " ") + word;
    }
    return line;
}

} // namespace

void sort_actions(Script &script)
{
    std::stable_sort(script.actions.begin(), script.actions.end(),
                     [](const Action &one, const Action &other) { return one.when < other.when; });
}

Ns time_from(const std::string &seconds)
{
    return static_cast<Ns>(std::llround(strtod(seconds.c_str(), nullptr) * 1000)) * MILLISECOND;
}

Script read_script(const std::string &text)
{
    Script script;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        Words words = split(line);
        if (words.empty()) {
            continue;
        }
        if (words.front() == "seed" && words.size() == 2) {
            script.seed = strtoull(words[1].c_str(), nullptr, 0);
        } else if (std::isdigit(static_cast<unsigned char>(words.front()[0])) != 0) {
            const Ns when = time_from(words.front());
            words.erase(words.begin());
            script.add(when, std::move(words));
        } else {
            script.setup.push_back(std::move(words));
        }
    }
    sort_actions(script);
    return script;
}

std::string write_script(const Script &script)
{
    std::string text = "seed " + std::to_string(script.seed) + "\n";
    for (const Words &words : script.setup) {
        text += joined(words) + "\n";
    }
    for (const Action &action : script.actions) {
        text += to_text(action.when) + " " + joined(action.words) + "\n";
    }
    return text;
}

std::string read_text_file(const std::string &path)
{
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    if (!file) {
        fprintf(stderr, "cannot read %s\n", path.c_str());
        exit(2);
    }
    return text.str();
}

} // namespace sim
