/*
 * The load of the scale run and its stop watch, in one process so that there is one clock:
 *
 *      sender thread                                     main thread
 *      IGMPv3 reports, a packet socket on the link       route notifications of the router's namespace
 *            |                                                   ^
 *            v                                                   |
 *        gmpd ----------> channel ----------> mribd ------> kernel entry
 *
 * Join i asks for group 232.1.0.0 + i from source 10.128.0.0 + i by name, so that its entry needs no packet
 * of the source. Its time begins before the system call that sends the report and ends when the notification
 * of the entry has been read, so that reading, and waiting for a processor to read with, is part of it. An
 * entry counts when it has an outgoing interface. At the end the kernel is asked for all of its entries.
 *
 * It is started in the host's namespace and prints a line when it begins to send, then one JSON object.
 */
#include <CLI/CLI.hpp>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <libmnl/libmnl.h>
#include <linux/if_packet.h>
#include <linux/rtnetlink.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace
{

constexpr uint32_t FIRST_GROUP = 0xE8010000;  /* 232.1.0.0 */
constexpr uint32_t FIRST_SOURCE = 0x0A800000; /* 10.128.0.0 */
constexpr uint32_t REPORTER = 0x0A02004D;     /* 10.2.0.77 */
constexpr uint32_t ALL_REPORTS = 0xE0000016;  /* 224.0.0.22 */
constexpr uint8_t ALLOW_NEW_SOURCES = 5;
constexpr int NOTIFICATION_BUFFER = 512 << 20;
constexpr int POLL_MS = 100;

struct Options {
    std::string interface = "eth0";
    std::string router;
    uint32_t count = 1000;
    uint32_t records = 1;
    uint32_t rate = 0;
    double patience_s = 15;
};

[[noreturn]] void fail(const char *step)
{
    perror(step);
    exit(EXIT_FAILURE);
}

double now_s()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void sleep_until(double when_s)
{
    const time_t seconds = static_cast<time_t>(when_s);
    const timespec when = {seconds, static_cast<long>((when_s - static_cast<double>(seconds)) * 1e9)};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &when, nullptr);
}

void put16(std::vector<uint8_t> &bytes, uint32_t value)
{
    bytes.push_back(static_cast<uint8_t>(value >> 8));
    bytes.push_back(static_cast<uint8_t>(value));
}

void put32(std::vector<uint8_t> &bytes, uint32_t value)
{
    put16(bytes, value >> 16);
    put16(bytes, value & 0xffff);
}

/* Writes the checksum of the bytes from begin to end into the two at place, which are 0. */
void set_checksum(std::vector<uint8_t> &bytes, size_t begin, size_t end, size_t place)
{
    uint32_t sum = 0;
    for (size_t i = begin; i < end; i += 2) {
        sum += static_cast<uint32_t>(bytes[i] << 8 | bytes[i + 1]);
    }
    sum = (sum & 0xffff) + (sum >> 16);
    sum = ~((sum & 0xffff) + (sum >> 16));
    bytes[place] = static_cast<uint8_t>(sum >> 8);
    bytes[place + 1] = static_cast<uint8_t>(sum);
}

/* A whole IP packet with a version 3 report of joins first to first + count. */
std::vector<uint8_t> report_packet(uint32_t first, uint32_t count)
{
    constexpr size_t IP_HEADER = 24;
    std::vector<uint8_t> bytes;

    put32(bytes, 0x46C00000 | static_cast<uint32_t>(IP_HEADER + 8 + 12 * count));
    put32(bytes, 0);
    put32(bytes, 0x01020000); /* one hop, IGMP */
    put32(bytes, REPORTER);
    put32(bytes, ALL_REPORTS);
    put32(bytes, 0x94040000); /* router alert */
    put32(bytes, 0x22000000);
    put32(bytes, count);
    for (uint32_t i = first; i < first + count; i++) {
        put32(bytes, static_cast<uint32_t>(ALLOW_NEW_SOURCES) << 24 | 1);
        put32(bytes, FIRST_GROUP + i);
        put32(bytes, FIRST_SOURCE + i);
    }
    set_checksum(bytes, 0, IP_HEADER, 10);
    set_checksum(bytes, IP_HEADER, bytes.size(), IP_HEADER + 2);
    return bytes;
}

/* Sends the reports at their rate, or one after the other, and notes when each left. */
class Sender
{
public:
    explicit Sender(const Options &options) : options_(options)
    {
        for (uint32_t first = 0; first < options.count; first += options.records) {
            packets_.push_back(report_packet(first, std::min(options.records, options.count - first)));
        }
        sent_at_.resize(packets_.size());
        socket_ = socket(AF_PACKET, SOCK_DGRAM, 0);
        to_.sll_family = AF_PACKET;
        to_.sll_protocol = htons(ETHERTYPE_IP);
        to_.sll_ifindex = static_cast<int>(if_nametoindex(options.interface.c_str()));
        to_.sll_halen = ETH_ALEN;
        const uint8_t group[] = {0x01, 0x00, 0x5e, 0x00, 0x00, 0x16};
        std::memcpy(to_.sll_addr, group, sizeof(group));
        if (socket_ < 0 || to_.sll_ifindex == 0) {
            fail("packet socket");
        }
    }

    void run()
    {
        const double start = now_s();
        const double apart_s = options_.rate == 0 ? 0 : static_cast<double>(options_.records) / options_.rate;

        for (size_t i = 0; i < packets_.size(); i++) {
            const double due = start + static_cast<double>(i) * apart_s;
            if (apart_s > 0 && now_s() < due) {
                sleep_until(due);
            }
            sent_at_[i] = now_s();
            send(packets_[i]);
        }
        done_at_ = now_s();
    }

    /* 0 while it sends. */
    double done_at() const
    {
        return done_at_;
    }

    double sent_at(uint32_t join) const
    {
        return sent_at_[join / options_.records];
    }

    size_t packet_count() const
    {
        return packets_.size();
    }

private:
    void send(const std::vector<uint8_t> &packet)
    {
        while (sendto(socket_, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr *>(&to_),
                      sizeof(to_)) < 0) {
            if (errno != ENOBUFS && errno != EINTR) {
                fail("sending a report");
            }
        }
    }

    const Options &options_;
    std::vector<std::vector<uint8_t>> packets_;
    std::vector<double> sent_at_;
    std::atomic<double> done_at_ = 0;
    sockaddr_ll to_{};
    int socket_;
};

/* A forwarding entry of the kernel, as far as it is one that was asked for. */
struct Entry {
    bool forwards = false;
    bool asked_for = false;
    uint32_t join = 0;
};

using Attributes = std::array<const nlattr *, RTA_MAX + 1>;

int keep_attribute(const nlattr *attribute, void *attributes)
{
    const uint16_t type = mnl_attr_get_type(attribute);
    if (type <= RTA_MAX) {
        (*static_cast<Attributes *>(attributes))[type] = attribute;
    }
    return MNL_CB_OK;
}

Entry entry_of(const nlmsghdr *message, uint32_t count)
{
    const auto *route = static_cast<const rtmsg *>(mnl_nlmsg_get_payload(message));
    Attributes attributes{};
    Entry entry;

    if (message->nlmsg_type != RTM_NEWROUTE || route->rtm_family != RTNL_FAMILY_IPMR) {
        return entry;
    }
    mnl_attr_parse(message, sizeof(rtmsg), keep_attribute, &attributes);
    if (attributes[RTA_SRC] == nullptr || attributes[RTA_DST] == nullptr) {
        return entry;
    }
    entry.join = ntohl(mnl_attr_get_u32(attributes[RTA_DST])) - FIRST_GROUP;
    entry.asked_for =
        entry.join < count && ntohl(mnl_attr_get_u32(attributes[RTA_SRC])) - FIRST_SOURCE == entry.join;
    entry.forwards = attributes[RTA_MULTIPATH] != nullptr &&
                     mnl_attr_get_payload_len(attributes[RTA_MULTIPATH]) >= sizeof(rtnexthop);
    return entry;
}

/* What the router's kernel says of its entries. */
class Kernel
{
public:
    /* Enters the router's namespace for the sockets alone. */
    explicit Kernel(const std::string &router)
    {
        const int home = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
        const int there = open(router.c_str(), O_RDONLY | O_CLOEXEC);

        if (home < 0 || there < 0 || setns(there, CLONE_NEWNET) != 0) {
            fail("the router's namespace");
        }
        notifications_ = open_socket();
        requests_ = open_socket();
        if (setns(home, CLONE_NEWNET) != 0) {
            fail("the host's namespace");
        }
        close(home);
        close(there);
        int group = RTNLGRP_IPV4_MROUTE;
        const int fd = mnl_socket_get_fd(notifications_);
        if (mnl_socket_setsockopt(notifications_, NETLINK_ADD_MEMBERSHIP, &group, sizeof(group)) != 0 ||
            setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &NOTIFICATION_BUFFER, sizeof(NOTIFICATION_BUFFER)) !=
                0) {
            fail("listening to notifications");
        }
    }

    /* Hands the entries of one notification over; false when none came for a while. */
    template <typename Take> bool listen(uint32_t count, const Take &take)
    {
        pollfd waiting = {mnl_socket_get_fd(notifications_), POLLIN, 0};
        if (poll(&waiting, 1, POLL_MS) <= 0) {
            return false;
        }
        const ssize_t size = mnl_socket_recvfrom(notifications_, buffer_.data(), buffer_.size());
        if (size < 0) {
            overruns_++;
            return true;
        }
        visit(size, count, take);
        return true;
    }

    /* Hands over all entries that the kernel has. */
    template <typename Take> void dump(uint32_t count, const Take &take)
    {
        nlmsghdr *request = mnl_nlmsg_put_header(buffer_.data());
        request->nlmsg_type = RTM_GETROUTE;
        request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
        auto *route = static_cast<rtmsg *>(mnl_nlmsg_put_extra_header(request, sizeof(rtmsg)));
        route->rtm_family = RTNL_FAMILY_IPMR;
        if (mnl_socket_sendto(requests_, request, request->nlmsg_len) < 0) {
            fail("asking for the entries");
        }
        ssize_t size;
        do {
            size = mnl_socket_recvfrom(requests_, buffer_.data(), buffer_.size());
            if (size < 0) {
                fail("reading the entries");
            }
        } while (visit(size, count, take));
    }

    /* How often notifications were lost because they were not read fast enough. */
    uint64_t overruns() const
    {
        return overruns_;
    }

private:
    static mnl_socket *open_socket()
    {
        mnl_socket *socket = mnl_socket_open(NETLINK_ROUTE);
        if (socket == nullptr || mnl_socket_bind(socket, 0, MNL_SOCKET_AUTOPID) != 0) {
            fail("netlink socket");
        }
        return socket;
    }

    /* False at the end of a dump. */
    template <typename Take> bool visit(ssize_t size, uint32_t count, const Take &take)
    {
        int left = static_cast<int>(size);
        const auto *message = reinterpret_cast<const nlmsghdr *>(buffer_.data());

        for (; mnl_nlmsg_ok(message, left); message = mnl_nlmsg_next(message, &left)) {
            if (message->nlmsg_type == NLMSG_DONE) {
                return false;
            }
            if (message->nlmsg_type >= NLMSG_MIN_TYPE) {
                take(entry_of(message, count));
            }
        }
        return true;
    }

    mnl_socket *notifications_ = nullptr;
    mnl_socket *requests_ = nullptr;
    uint64_t overruns_ = 0;
    alignas(nlmsghdr) std::array<uint8_t, 65536> buffer_{};
};

/* When each join's entry came, until all have or none has for as long as patience says. */
class Watch
{
public:
    Watch(const Options &options, Kernel &kernel)
        : options_(options), kernel_(kernel), seen_at_(options.count)
    {
    }

    void run(const Sender &sender)
    {
        double progress = now_s();
        while (seen_ < options_.count) {
            const uint32_t before = seen_;
            kernel_.listen(options_.count, [this](const Entry &entry) { note(entry); });
            if (seen_ != before || sender.done_at() == 0) {
                progress = now_s();
            } else if (now_s() > progress + options_.patience_s) {
                return;
            }
        }
    }

    void print(const Sender &sender) const
    {
        std::vector<double> latencies;
        double first = 0;
        double last = 0;
        for (uint32_t join = 0; join < options_.count; join++) {
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
        if (entry.asked_for && entry.forwards && seen_at_[entry.join] == 0) {
            seen_at_[entry.join] = now_s();
            seen_++;
        }
    }

    const Options &options_;
    Kernel &kernel_;
    std::vector<double> seen_at_;
    uint32_t seen_ = 0;
};

void print_final(const Options &options, Kernel &kernel)
{
    std::vector<bool> present(options.count);
    uint32_t right = 0;
    uint32_t others = 0;

    kernel.dump(options.count, [&](const Entry &entry) {
        if (entry.asked_for && entry.forwards && !present[entry.join]) {
            present[entry.join] = true;
            right++;
        } else {
            others++;
        }
    });
    printf(", \"in_kernel\": %u, \"others_in_kernel\": %u", right, others);
}

bool parse(int argc, char **argv, Options *options)
{
    CLI::App app("Joins source-specific groups on a link and waits for their forwarding entries");
    app.add_option("--interface", options->interface, "Link to report on")->capture_default_str();
    app.add_option("--router", options->router, "File of the router's network namespace")->required();
    app.add_option("--count", options->count, "Joins")->check(CLI::Range(1u, 1u << 20));
    app.add_option("--records", options->records, "Joins in a report")->check(CLI::Range(1u, 122u));
    app.add_option("--rate", options->rate, "Joins a second; 0: as fast as they can be sent");
    app.add_option("--patience", options->patience_s,
                   "Seconds without progress after which what is missing is lost");
    try {
        app.parse(argc, argv);
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
    Kernel kernel(options.router);
    Sender sender(options);
    Watch watch(options, kernel);

    printf("sending\n");
    fflush(stdout);
    std::thread sending([&sender] { sender.run(); });
    watch.run(sender);
    sending.join();
    printf("{");
    watch.print(sender);
    print_final(options, kernel);
    printf("}\n");
    return EXIT_SUCCESS;
}
