#include "daemons/common/options.h"

#include "daemons/common/command_words.h"
#include "daemons/common/log.h"
#include "daemons/common/trace.h"

namespace mcastd
{

Options::Options(const char *name, const std::string &description, Kind kind)
    : name_(name), app_(std::make_unique<CLI::App>(description, name))
{
    if (kind == Kind::Daemon) {
        add_diagnostics();
    }
    app_->set_version_flag("--version", std::string(name) + " " MCAST_VERSION_TEXT);
}

Options::~Options() = default;

void Options::add_diagnostics()
{
    app_->add_option("--log-level", level_, "Least severe messages to log: error, warning, info or debug")
        ->check(one_of({"error", "warning", "info", "debug"}))
        ->capture_default_str();
    app_->add_option("--status-file", status_file_,
                     "File that SIGUSR1 replaces with the daemon's tables; standard output without it");
    std::vector<std::string> categories{"all"};
    categories.insert(categories.end(), trace_category_names().begin(), trace_category_names().end());
    app_->add_option("--debug", trace_categories_,
                     "What to trace: all, packet, group, querier, channel, route or user; may be repeated")
        ->check(one_of(categories))
        ->allow_extra_args(false);
    app_->add_option("--debug-acl", trace_acl_,
                     "Access list of the configuration; traces about other sources and groups are left out");
    app_->add_option("--debug-interface", trace_interface_,
                     "Interface; traces about other interfaces are left out");
}

void Options::add_family(const std::string &help)
{
    CLI::Option *named = app_->add_option_function<std::string>(
                                 "--family",
                                 [this](const std::string &name) {
                                     family_ = name == "ipv6" ? MCAST_FAMILY_IPV6 : MCAST_FAMILY_IPV4;
                                 },
                                 help)
                             ->check(one_of({"ipv4", "ipv6"}));
    CLI::Option *ipv4 = app_->add_flag_callback(
        "-4", [this] { family_ = MCAST_FAMILY_IPV4; }, "The same as --family ipv4");
    CLI::Option *ipv6 = app_->add_flag_callback(
        "-6", [this] { family_ = MCAST_FAMILY_IPV6; }, "The same as --family ipv6");
    ipv4->excludes(ipv6)->excludes(named);
    ipv6->excludes(named);
}

void Options::add_config(const std::string &help, Config need)
{
    app_->add_option("--config", config_file_, help)->required(need == Config::Required);
}

std::optional<int> Options::parse(int argc, char **argv)
{
    explain_errors(*app_);
    try {
        app_->parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app_->exit(error);
    }
    log_open(name_, *log_level_from_name(level_));
    return std::nullopt;
}

bool Options::start_trace() const
{
    std::string error;
    bool good = trace_filter_acl(trace_acl_, &error) && trace_filter_interface(trace_interface_, &error);
    for (const std::string &category : trace_categories_) {
        good = good && trace_switch(category, true, &error);
    }
    if (!good) {
        log_error("%s", error.c_str());
    }
    return good;
}

} // namespace mcastd
