/*
 * One table says which words a verb takes, which it needs, and how each is read. Errors name the word as it
 * was written, so that a line of a long file is found at once.
 */
#include "daemons/uagent/command.h"

#include <fstream>
#include <sstream>

#include "daemons/common/nearest_word.h"
#include "daemons/uagent/values.h"

namespace uagent
{
namespace
{

constexpr const char *VERB_NAMES[] = {"announce", "withdraw",      "update",
                                      "groups",   "refresh-begin", "refresh-end"};

constexpr unsigned bit(Verb verb)
{
    return 1u << static_cast<unsigned>(verb);
}

constexpr unsigned RECORDS = bit(Verb::Announce) | bit(Verb::Update);
constexpr unsigned LISTS = RECORDS | bit(Verb::Groups);
constexpr unsigned USERS = LISTS | bit(Verb::Withdraw);
constexpr unsigned ALL = USERS | bit(Verb::RefreshBegin) | bit(Verb::RefreshEnd);
constexpr unsigned NONE = 0;

using Take = bool (*)(Command &command, const std::string &value, std::string *error);

template <auto Member, uint64_t LOWEST = 0, uint64_t HIGHEST = UINT64_MAX>
bool take_number(Command &command, const std::string &value, std::string *error)
{
    return read_number(value, LOWEST, HIGHEST, &(command.*Member), error);
}

template <auto Member> bool take_user_address(Command &command, const std::string &value, std::string *error)
{
    return read_user_address(value, command.family, &(command.*Member), error);
}

bool take_interface(Command &command, const std::string &value, std::string *error)
{
    return read_interface(value, command.family, &command.access_if_index, error);
}

bool take_hardware_address(Command &command, const std::string &value, std::string *error)
{
    return read_hardware_address(value, &command.hardware_address, error);
}

bool take_name(Command &command, const std::string &value, std::string *error)
{
    if (value.empty() || value.size() > NAME_MAX_LENGTH) {
        *error = "not 1 to " + std::to_string(NAME_MAX_LENGTH) + " bytes";
        return false;
    }
    command.name = value;
    return true;
}

bool take_group(Command &command, const std::string &value, std::string *error)
{
    Permission permission;
    if (!read_permission(value, command.family, &permission, error)) {
        return false;
    }
    command.permissions.push_back(permission);
    return true;
}

bool take_group_file(Command &command, const std::string &path, std::string *error)
{
    std::ifstream file(path);
    std::string line;
    size_t number = 0;
    if (!file) {
        *error = "cannot be read";
        return false;
    }
    while (std::getline(file, line)) {
        ++number;
        for (const std::string &word : split_words(line)) {
            if (!take_group(command, word, error)) {
                *error = "line " + std::to_string(number) + ": " + word + ": " + *error;
                return false;
            }
        }
    }
    if (file.bad()) {
        *error = "cannot be read to its end";
        return false;
    }
    return true;
}

bool take_open(Command &command, const std::string &value, std::string *error)
{
    if (value != "yes" && value != "no") {
        *error = "neither yes nor no";
        return false;
    }
    command.open = value == "yes";
    return true;
}

struct Key {
    const char *name;
    unsigned allowed;
    unsigned required;
    bool repeats;
    Take take;
};

constexpr Key KEYS[] = {
    {"id", USERS, USERS, false, take_number<&Command::user_id>},
    {"node", ALL, ALL, false, take_number<&Command::node>},
    {"kind", ALL, ALL, false, take_number<&Command::kind, 1, 4>},
    {"interface", RECORDS, RECORDS, false, take_interface},
    {"address", RECORDS, RECORDS, false, take_user_address<&Command::address>},
    {"second-address", RECORDS, NONE, false, take_user_address<&Command::second_address>},
    {"vrf", RECORDS, NONE, false, take_number<&Command::vrf_index>},
    {"hardware-address", RECORDS, NONE, false, take_hardware_address},
    {"name", RECORDS, NONE, false, take_name},
    {"attribute-24", RECORDS, NONE, false, take_number<&Command::attribute_24>},
    {"attribute-32", RECORDS, NONE, false, take_number<&Command::attribute_32>},
    {"attribute-34", RECORDS, NONE, false, take_number<&Command::attribute_34>},
    {"attribute-36", RECORDS, NONE, false, take_number<&Command::attribute_36>},
    {"attribute-40", RECORDS, NONE, false, take_number<&Command::attribute_40>},
    {"attribute-70", RECORDS, NONE, false, take_number<&Command::attribute_70>},
    {"attribute-80", RECORDS, NONE, false, take_number<&Command::attribute_80>},
    {"attribute-84", RECORDS, NONE, false, take_number<&Command::attribute_84>},
    {"group", LISTS, NONE, true, take_group},
    {"group-file", LISTS, NONE, true, take_group_file},
    {"open", LISTS, NONE, false, take_open},
};
constexpr size_t KEY_COUNT = std::size(KEYS);

// The names of the keys that go with the verb.
std::vector<std::string> keys_of(Verb verb)
{
    std::vector<std::string> names;
    for (const Key &key : KEYS) {
        if ((key.allowed & bit(verb)) != 0) {
            names.emplace_back(key.name);
        }
    }
    return names;
}

bool read_verb(const std::string &word, Verb *verb)
{
    for (size_t i = 0; i < std::size(VERB_NAMES); ++i) {
        if (word == VERB_NAMES[i]) {
            *verb = static_cast<Verb>(i);
            return true;
        }
    }
    return false;
}

// The key's place in KEYS, or KEY_COUNT.
size_t find_key(const std::string &name)
{
    size_t place = 0;
    while (place < KEY_COUNT && name != KEYS[place].name) {
        ++place;
    }
    return place;
}

bool take_word(const std::string &word, Command *command, bool *seen, std::string *error)
{
    const size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    const size_t place = find_key(name);
    if (equals == std::string::npos) {
        *error = "not of the form key=value";
        return false;
    }
    if (place == KEY_COUNT) {
        *error = "unknown key" + mcastd::suggestion(name, keys_of(command->verb));
        return false;
    }
    const Key &key = KEYS[place];
    if ((key.allowed & bit(command->verb)) == 0) {
        *error = "does not go with this verb";
        return false;
    }
    if (seen[place] && !key.repeats) {
        *error = "given twice";
        return false;
    }
    seen[place] = true;
    return key.take(*command, word.substr(equals + 1), error);
}

} // namespace

const char *verb_name(Verb verb)
{
    return VERB_NAMES[static_cast<size_t>(verb)];
}

std::vector<std::string> split_words(const std::string &line)
{
    std::istringstream stream(line);
    std::vector<std::string> words;
    std::string word;
    while (stream >> word && word.front() != '#') {
        words.push_back(word);
    }
    return words;
}

bool parse_command(const std::vector<std::string> &words, uint16_t family, Command *command,
                   std::string *error)
{
    bool seen[KEY_COUNT] = {};
    *command = Command{};
    command->family = family;
    command->address.family = family;
    command->second_address.family = family;
    if (words.empty()) {
        *error = "there is no command";
        return false;
    }
    if (!read_verb(words.front(), &command->verb)) {
        *error = words.front() + ": no command of that name" +
                 mcastd::suggestion(words.front(), {std::begin(VERB_NAMES), std::end(VERB_NAMES)});
        return false;
    }
    for (size_t i = 1; i < words.size(); ++i) {
        if (!take_word(words[i], command, seen, error)) {
            *error = words.front() + ": " + words[i] + ": " + *error;
            return false;
        }
    }
    for (size_t place = 0; place < KEY_COUNT; ++place) {
        if ((KEYS[place].required & bit(command->verb)) != 0 && !seen[place]) {
            *error = words.front() + ": " + KEYS[place].name + "= is missing";
            return false;
        }
    }
    return true;
}

} // namespace uagent
