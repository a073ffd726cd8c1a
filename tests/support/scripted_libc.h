/*
 * System calls under a test's control. A test program that links the library's objects has the calls listed
 * in scripted_libc.inc redirected here: each goes to the function object of its name when the test has set
 * one, and to the real call otherwise.
 */
#ifndef TESTS_SUPPORT_SCRIPTED_LIBC_H
#define TESTS_SUPPORT_SCRIPTED_LIBC_H

#include <cerrno>
#include <functional>
#include <pthread.h>
#include <regex.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <time.h>

namespace scripted
{

#define SCRIPTED_CALL(result, name, parameters, arguments) extern std::function<result parameters> name;
#include "support/scripted_libc.inc"
#undef SCRIPTED_CALL

/* Gives every call back to the real one. */
void Reset();

/* A value for a function object: fails with the given errno. */
template <typename Result = int> auto Failing(int error, Result result = static_cast<Result>(-1))
{
    return [=](auto...) {
        errno = error;
        return result;
    };
}

/* The real calls, for function objects that add something to one. */
namespace real
{
#define SCRIPTED_CALL(result, name, parameters, arguments) result name parameters;
#include "support/scripted_libc.inc"
#undef SCRIPTED_CALL
} // namespace real

} // namespace scripted

#endif
