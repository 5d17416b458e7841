/// localtime_r() guards the time zone with a lock of the C library's own, which
/// the thread sanitizer does not see.
extern "C" const char *__tsan_default_suppressions();

extern "C" const char *__tsan_default_suppressions()
{
    return "race:tzset_internal\n";
}
