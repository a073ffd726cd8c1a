// A descriptor that was remembered may be closed by its owner at any moment, also on another thread. Whether it is still
// the same socket is asked of the kernel each time, which the thread sanitizer takes for a race.
extern "C" const char *__tsan_default_suppressions() // NOLINT: the sanitizer's name
{
    return "race:host::remember_port\n";
}
