#include "daemons/common/options.h"

#include <CLI/CLI.hpp>

#include "daemons/common/log.h"
#include "daemons/common/trace.h"

namespace mcastd
{

Options::Options(const char *name, const std::string &description)
    : name_(name), app_(std::make_unique<CLI::App>(description, name))
{
    app_->add_option("--log-level", level_, "Least severe messages to log: error, warning, info or debug")
        ->check(CLI::IsMember({"error", "warning", "info", "debug"}))
        ->capture_default_str();
    app_->add_option("--status-file", status_file_,
                     "File that SIGUSR1 replaces with the daemon's tables; standard output without it");
    std::vector<std::string> categories{"all"};
    categories.insert(categories.end(), trace_category_names().begin(), trace_category_names().end());
    app_->add_option("--debug", trace_categories_,
                     "What to trace: all, packet, group, querier, channel, route or user; may be repeated")
        ->check(CLI::IsMember(categories))
        ->allow_extra_args(false);
    app_->add_option("--debug-acl", trace_acl_,
                     "Access list of the configuration; traces about other sources and groups are left out");
    app_->add_option("--debug-interface", trace_interface_,
                     "Interface; traces about other interfaces are left out");
    app_->set_version_flag("--version", std::string(name) + " " MCAST_VERSION);
}

Options::~Options() = default;

std::optional<int> Options::parse(int argc, char **argv)
{
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
