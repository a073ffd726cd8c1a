/*
 * The load of the scale run and its stop watch, in one process so that there is one clock:
 *
 *      sender thread                                     main thread
 *      reports, a packet socket on the link              route notifications of the router's namespace
 *            |                                                   ^
 *            v                                                   |
 *        gmpd ----------> channel ----------> mribd ------> kernel entry
 *
 * The time of a join begins before the system call that sends its report and ends when the notification of
 * its entry has been read, so that reading, and waiting for a processor to read with, is part of it. An entry
 * counts when it has an outgoing interface. At the end the kernel is asked for all of its entries.
 *
 * It is started in the host's namespace and prints a line when it begins to send, then one JSON object.
 */
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "scale_joins.h"
#include "scale_kernel.h"
#include "scale_sender.h"
#include "scale_support.h"

namespace
{

using scale::Entry;
using scale::Family;
using scale::Kernel;
using scale::now_s;
using scale::Sender;

// When each join's entry came.
class Watch
{
public:
    Watch(Kernel &kernel, uint32_t joins) : kernel_(kernel), seen_at_(joins)
    {
    }

    // Until all have come, or none has for as long as patience says after everything was sent.
    void run(const Sender &sender, double patience_s)
    {
        const Kernel::Take take = [this](const Entry &entry) { note(entry); };
        double progress = now_s();
        while (seen_ < seen_at_.size()) {
            const uint32_t before = seen_;
            kernel_.listen(take);
            if (seen_ != before || sender.done_at() == 0) {
                progress = now_s();
            } else if (now_s() > progress + patience_s) {
                return;
            }
        }
    }

    void print(const Sender &sender) const
    {
        std::vector<double> latencies;
        double first = 0;
        double last = 0;
        for (uint32_t join = 0; join < seen_at_.size(); ++join) {
            const double at = seen_at_[join];
            if (at > 0) {
                first = first == 0 ? at : std::min(first, at);
                last = std::max(last, at);
                latencies.push_back((at - sender.sent_at(join)) * 1e3);
            }
        }
        std::sort(latencies.begin(), latencies.end());
        printf("\"notified\": %u, \"overruns\": %llu, \"packets\": %zu, \"started_at\": %.6f, \"sent_at\": "
               "%.6f, "
               "\"first_at\": %.6f, \"last_at\": %.6f, \"latency_ms\": {",
               seen_, static_cast<unsigned long long>(kernel_.overruns()), sender.packet_count(),
               sender.sent_at(0), sender.done_at(), first, last);
        for (const double percent : {50.0, 90.0, 99.0, 99.9, 100.0}) {
            printf("%s\"%g\": %.3f", percent > 50 ? ", " : "", percent, percentile(latencies, percent));
        }
        printf("}");
    }

private:
    static double percentile(const std::vector<double> &sorted, double percent)
    {
        if (sorted.empty()) {
            return 0;
        }
        const double rank = percent / 100 * static_cast<double>(sorted.size());
        return sorted[std::min(sorted.size() - 1, static_cast<size_t>(rank))];
    }

    void note(const Entry &entry)
    {
        if (entry.forwards && entry.join && *entry.join < seen_at_.size() && seen_at_[*entry.join] == 0) {
            seen_at_[*entry.join] = now_s();
            ++seen_;
        }
    }

    Kernel &kernel_;
    std::vector<double> seen_at_;
    uint32_t seen_ = 0;
};

void print_final(uint32_t joins, Kernel &kernel)
{
    std::vector<bool> present(joins);
    uint32_t right = 0;
    uint32_t others = 0;
    kernel.dump([&](const Entry &entry) {
        if (entry.forwards && entry.join && *entry.join < joins && !present[*entry.join]) {
            present[*entry.join] = true;
            ++right;
        } else {
            ++others;
        }
    });
    printf(", \"in_kernel\": %u, \"others_in_kernel\": %u", right, others);
}

struct Options {
    std::string router;
    std::string family = scale::IPV4.name;
    Sender::Plan plan;
    double patience_s = 15;

    const Family &which() const
    {
        return family == scale::IPV6.name ? scale::IPV6 : scale::IPV4;
    }
};

bool parse(int argc, char **argv, Options *options)
{
    CLI::App app("Joins source-specific groups on a link and waits for their forwarding entries");
    app.add_option("--router", options->router, "File of the router's network namespace")->required();
    app.add_option("--family", options->family, "Of the groups")
        ->check(CLI::IsMember({scale::IPV4.name, scale::IPV6.name}))
        ->capture_default_str();
    app.add_option("--interface", options->plan.interface, "Link to report on")->capture_default_str();
    app.add_option("--count", options->plan.joins, "Joins")->check(CLI::Range(1u, 1u << 20));
    app.add_option("--records", options->plan.records, "Joins in a report")->check(CLI::PositiveNumber);
    app.add_option("--rate", options->plan.rate, "Joins a second; 0: as fast as they can be sent");
    app.add_option("--patience", options->patience_s,
                   "Seconds without progress after which what is missing is lost");
    try {
        app.parse(argc, argv);
        if (options->plan.records > options->which().records_max) {
            throw CLI::ValidationError("--records", "a packet does not take as many joins");
        }
    } catch (const CLI::ParseError &error) {
        app.exit(error);
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    if (!parse(argc, argv, &options)) {
        return EXIT_FAILURE;
    }
    Kernel kernel(options.which(), options.router);
    Sender sender(options.which(), options.plan);
    Watch watch(kernel, options.plan.joins);

    printf("sending\n");
    fflush(stdout);
    std::thread sending([&sender] { sender.run(); });
    watch.run(sender, options.patience_s);
    sending.join();
    printf("{");
    watch.print(sender);
    print_final(options.plan.joins, kernel);
    printf("}\n");
    return EXIT_SUCCESS;
}
