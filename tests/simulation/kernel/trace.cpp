#include "tests/simulation/kernel/trace.h"

namespace sim
{

void Trace::broken(Rule rule, Ns when, const std::string &what)
{
    if (is_good()) {
        rule_ = rule;
        when_ = when;
        what_ = what;
    }
}

} // namespace sim
