#include "support/scripted_libc.h"

#include <cerrno>

#define SCRIPTED_CALL(result, name, parameters, arguments)                                                   \
    extern "C" result __real_##name parameters;                                                              \
    extern "C" result __wrap_##name parameters;
#include "support/scripted_libc.inc"
#undef SCRIPTED_CALL

namespace scripted
{

#define SCRIPTED_CALL(result, name, parameters, arguments) std::function<result parameters> name;
#include "support/scripted_libc.inc"
#undef SCRIPTED_CALL

void Reset()
{
#define SCRIPTED_CALL(result, name, parameters, arguments) name = nullptr;
#include "support/scripted_libc.inc"
#undef SCRIPTED_CALL
}

namespace real
{
#define SCRIPTED_CALL(result, name, parameters, arguments)                                                   \
    result name parameters                                                                                   \
    {                                                                                                        \
        return __real_##name arguments;                                                                      \
    }
#include "support/scripted_libc.inc"
#undef SCRIPTED_CALL
} // namespace real

} // namespace scripted

#define SCRIPTED_CALL(result, name, parameters, arguments)                                                   \
    result __wrap_##name parameters                                                                          \
    {                                                                                                        \
        return scripted::name ? scripted::name arguments : __real_##name arguments;                          \
    }
#include "support/scripted_libc.inc"
#undef SCRIPTED_CALL
