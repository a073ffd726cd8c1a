/*
 * The simulation from the command line; docs/testing.md says how to use it.
 *
 *     simulate replay FILE...                carries out scripts
 *     simulate trace FILE                    one script, with the daemons' logs
 *     simulate random FROM COUNT HOURS       scripts made from seeds, with faults; calm COUNT... without
 *     simulate write SEED HOURS              shows such a script
 *     simulate sweep memory|calls DAEMON [STEP]
 *     simulate shrink FILE                   shows the smallest script that breaks the same rule
 *     simulate endless SECONDS FROM          random scripts until that much real time is over
 */
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <string>
#include <vector>

#include "tests/simulation/run/random_script.h"
#include "tests/simulation/run/run.h"
#include "tests/simulation/run/shrink.h"
#include "tests/simulation/run/sweep.h"

namespace
{

using namespace sim;

constexpr unsigned MOST_TRIES = 600;

uint64_t number_from(const std::string &word)
{
    return strtoull(word.c_str(), nullptr, 10);
}

bool report(const std::string &name, const Result &result)
{
    printf("%s: %s s, hash %016lx, packets %lu wanted %lu unwanted, %lu rests, %lu entries and %lu rows "
           "compared, %lu ends\n",
           name.c_str(), to_text(result.lasted).c_str(), result.hash, result.counts.packets,
           result.counts.unwanted, result.counts.rests, result.counts.entries, result.counts.rows,
           result.counts.ends);
    if (!result.is_good()) {
        printf("%s: BROKEN rule %d at %s s: %s\n", name.c_str(), static_cast<int>(result.rule),
               to_text(result.when).c_str(), result.what.c_str());
    }
    fflush(stdout);
    return result.is_good();
}

int replay(const std::vector<std::string> &files, bool verbose)
{
    bool good = true;
    for (const std::string &file : files) {
        const Script script = read_script(read_text_file(file));
        good &= report(file, Run(script, verbose).execute());
    }
    return good ? 0 : 1;
}

Script script_of(uint64_t seed, const std::string &hours, bool faults)
{
    return random_script({seed, static_cast<Ns>(strtod(hours.c_str(), nullptr) * 3600) * SECOND, faults});
}

// Runs the seed; a script that breaks a rule is written down.
bool run_seed(uint64_t seed, const std::string &hours, bool faults)
{
    const Script script = script_of(seed, hours, faults);
    const Result result = Run(script).execute();
    if (report("seed " + std::to_string(seed), result)) {
        return true;
    }
    const std::string file = "simulation." + std::to_string(seed) + ".script";
    std::ofstream(file) << write_script(script);
    printf("written to %s; repeat it with: simulate trace %s; make it small with: simulate shrink %s\n",
           file.c_str(), file.c_str(), file.c_str());
    return false;
}

int run_seeds(const std::vector<std::string> &words, bool faults)
{
    const uint64_t from = number_from(words.at(0));
    bool good = true;
    for (uint64_t seed = from; seed < from + number_from(words.at(1)); ++seed) {
        good &= run_seed(seed, words.at(2), faults);
    }
    return good ? 0 : 1;
}

// Writes the smallest script that breaks the same rule beside the one that did.
void shrink_seed(uint64_t seed, const std::string &hours, bool faults)
{
    const Script script = script_of(seed, hours, faults);
    const Result result = Run(script).execute();
    const std::string file = "simulation." + std::to_string(seed) + ".small.script";
    std::ofstream(file) << "# rule " << static_cast<int>(result.rule) << ": " << result.what << "\n"
                        << write_script(shrink(script, result.rule, MOST_TRIES));
    printf("the smallest script found is %s; repeat it with: simulate trace %s\n", file.c_str(),
           file.c_str());
}

int run_endless(const std::vector<std::string> &words)
{
    const time_t end = time(nullptr) + static_cast<time_t>(number_from(words.at(0)));
    for (uint64_t seed = number_from(words.at(1)); time(nullptr) < end; ++seed) {
        const bool faults = seed % 4 != 0;
        if (!run_seed(seed, "6", faults)) {
            printf("repeat it with: simulate %s %lu 1 6\n", faults ? "random" : "calm", seed);
            fflush(stdout);
            shrink_seed(seed, "6", faults);
            return 1;
        }
    }
    return 0;
}

int run_sweep(const std::vector<std::string> &words)
{
    const unsigned step = words.size() > 2 ? static_cast<unsigned>(number_from(words[2])) : 1;
    const SweepReport swept =
        sweep(words.at(0) == "memory" ? Swept::Memory : Swept::Calls, words.at(1), step);
    for (const SweepFailure &failure : swept.failures) {
        std::string refusal;
        for (const std::string &word : failure.script.actions.front().words) {
            refusal += word + " ";
        }
        printf("%s: BROKEN rule %d at %s s: %s\n%s", refusal.c_str(), static_cast<int>(failure.result.rule),
               to_text(failure.result.when).c_str(), failure.result.what.c_str(), failure.place.c_str());
    }
    printf("%s of %s: %u lives, %zu broke a rule, and %u outside the daemon's own code\n",
           words.at(0).c_str(), words.at(1).c_str(), swept.lives, swept.failures.size(), swept.outside);
    return swept.failures.empty() ? 0 : 1;
}

int run_shrink(const std::string &file)
{
    const Script script = read_script(read_text_file(file));
    const Result result = Run(script).execute();
    if (result.is_good()) {
        fprintf(stderr, "%s breaks no rule\n", file.c_str());
        return 2;
    }
    printf("# rule %d: %s\n%s", static_cast<int>(result.rule), result.what.c_str(),
           write_script(shrink(script, result.rule, MOST_TRIES)).c_str());
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    const std::string program(argv[0]);
    set_image_folder(program.substr(0, program.rfind('/') + 1) + "../lib");
    const std::string command = argc > 2 ? argv[1] : "";
    const std::vector<std::string> words(argv + 2, argv + (argc > 2 ? argc : 2));
    if (command == "replay" || command == "trace") {
        return replay(words, command == "trace");
    }
    if ((command == "random" || command == "calm") && words.size() == 3) {
        return run_seeds(words, command == "random");
    }
    if (command == "write" && words.size() == 2) {
        printf("%s", write_script(script_of(number_from(words[0]), words[1], true)).c_str());
        return 0;
    }
    if (command == "sweep" && words.size() >= 2) {
        return run_sweep(words);
    }
    if (command == "shrink" && words.size() == 1) {
        return run_shrink(words[0]);
    }
    if (command == "endless" && words.size() == 2) {
        return run_endless(words);
    }
    fprintf(stderr,
            "usage: simulate replay|trace|random|calm|write|sweep|shrink|endless ...; see docs/testing.md\n");
    return 2;
}
