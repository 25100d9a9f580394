// Part of the programs themselves, as the sanitizer asks them.

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define PACKAGE_SEARCH_THREAD_SANITIZER
#endif
#endif

#if defined(__SANITIZE_THREAD__) || defined(PACKAGE_SEARCH_THREAD_SANITIZER)

extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions();

// The installed HTTP library is not instrumented: that its local statics are initialised before
// they are read cannot be seen. What our own code does in its threads still is.
const char* __tsan_default_suppressions() {
    return "called_from_lib:libcpp-httplib.so\n";
}

#endif
