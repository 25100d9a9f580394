#pragma once

/* The interface in C (C11), and the functions behind tarn/Trace.h: what C++ should use. Its names,
   the layout of its structures and the meaning of its functions stay as they are as long as the
   name of the shared library does. In C++ all of it is in the namespace tarn::abi.

       tarn_scope scope;
       tarn_scope_open(&scope, "load", TARN_TO_NUL, NULL, TARN_LIST(tarn_text("path", path)));
       ...
       tarn_scope_close(&scope);

   Texts are UTF-8. Arguments are used during the call only. No function fails: when memory runs
   out, the log is incomplete. A null pointer for work, a hand-over, a list or a text is allowed,
   and operations on it have no effect. */

#include "tarn/Export.h"
#include "tarn/site.h"

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define TARN_NOTHROW noexcept
#else
#define TARN_NOTHROW
#endif

/* The length of a text that ends with a NUL. */
#define TARN_TO_NUL SIZE_MAX

#ifdef __cplusplus
// NOLINTBEGIN(readability-identifier-naming,modernize-use-using,modernize-deprecated-headers): C
namespace tarn::abi {
extern "C" {
#endif

/* ---- Attributes */

/* Of the values of an attribute. */
enum {
    TARN_INTEGER = 0,   /* value.integer */
    TARN_NATURAL = 1,   /* value.natural; logged as text if it is above INT64_MAX */
    TARN_REAL = 2,      /* value.real */
    TARN_BOOLEAN = 3,   /* value.integer is not 0 */
    TARN_TEXT = 4,      /* value.text, of more.length bytes */
    TARN_CHARACTER = 5, /* value.natural is a code point of Unicode; logged as text */
    TARN_CONVERTED = 6  /* a text that more.convert makes of value.object, if it is needed */
};

typedef struct tarn_receiver tarn_receiver;

/* Calls tarn_receive with the text of `object`, at most once. Must not throw. */
typedef void (*tarn_convert)(const void* object, tarn_receiver* receiver);

/* A name and a value, borrowed. */
typedef struct tarn_attribute {
    const char* key;
    size_t key_length;

    union {
        int64_t integer;
        uint64_t natural;
        double real;
        const char* text;
        const void* object;
    } value;

    union {
        size_t length;
        tarn_convert convert;
    } more;

    int32_t type;
} tarn_attribute;

TARN_EXPORT void tarn_receive(tarn_receiver* receiver,
                              const char* text,
                              size_t length) TARN_NOTHROW;

/* ---- Work: a scope, or an activity */

/* Only the library looks inside. */
typedef struct tarn_work {
    uint64_t kind; /* 0 for a scope that is off */
} tarn_work;

/* A piece of work on one thread, from open to close. The thread that opened it closes it, and
   scopes are closed in the reverse order of their openings; otherwise the process ends, and a line
   on standard error says why. It must not be moved. */
typedef struct tarn_scope {
    tarn_work work; /* for the functions below */
    uint64_t room[95];
} tarn_scope;

/* What is current where work is handed over, for use on another thread. */
typedef struct tarn_handoff tarn_handoff;

/* How work is traced; zero is the default. */
typedef struct tarn_options {
    size_t size;                   /* sizeof(tarn_options) */
    uint64_t flags;                /* further bits of the metrics scope */
    int32_t type;                  /* 0, 1 transparent: not logged, 2 not measured */
    int32_t rank;                  /* the larger, the sooner it is switched off */
    const tarn_attribute* context; /* attributes of everything within */
    size_t context_count;
    const tarn_handoff* from; /* continues there, not under the thread's current work */
} tarn_options;

/* Opens a scope and makes it current. Without a name it gets that of `options->from`. */
TARN_EXPORT void tarn_scope_open(tarn_scope* scope,
                                 const char* name,
                                 size_t name_length,
                                 const tarn_options* options,
                                 const tarn_attribute* attributes,
                                 size_t count) TARN_NOTHROW;

/* The same at a place that caches whether the name is off, so that nothing is searched then:

       static tarn_site site;
       tarn_scope_open_at(&scope, &site, "load", TARN_TO_NUL, NULL, NULL, 0); */
TARN_EXPORT void tarn_scope_open_at(tarn_scope* scope,
                                    tarn_site* site,
                                    const char* name,
                                    size_t name_length,
                                    const tarn_options* options,
                                    const tarn_attribute* attributes,
                                    size_t count) TARN_NOTHROW;

/* Once for each open. */
TARN_EXPORT void tarn_scope_close(tarn_scope* scope) TARN_NOTHROW;

/* Begins an activity: work that may end on any thread and in any order. It is not current
   anywhere until it is resumed. Any thread may use it, several at once. The caller owns it; null
   when memory has run out. */
TARN_EXPORT tarn_work* tarn_activity_begin(const char* name,
                                           size_t name_length,
                                           const tarn_options* options,
                                           const tarn_attribute* attributes,
                                           size_t count) TARN_NOTHROW;

/* Ends the activity. Afterwards it can only be released. */
TARN_EXPORT void tarn_activity_end(tarn_work* activity) TARN_NOTHROW;

/* Adds an owner. */
TARN_EXPORT void tarn_activity_retain(tarn_work* activity) TARN_NOTHROW;

/* Removes an owner; the last one frees the activity, and ends it first if it has not ended. */
TARN_EXPORT void tarn_activity_release(tarn_work* activity) TARN_NOTHROW;

/* Makes the activity current on the calling thread: what begins there belongs to it. */
TARN_EXPORT void tarn_activity_resume(tarn_work* activity) TARN_NOTHROW;

/* Takes the activity off the calling thread. */
TARN_EXPORT void tarn_activity_suspend(tarn_work* activity) TARN_NOTHROW;

/* The innermost scope or resumed activity of the calling thread, borrowed until it ends; null if
   there is none, or if it is switched off. */
TARN_EXPORT tarn_work* tarn_current(void) TARN_NOTHROW;

/* Attributes, which are in the end event. */
TARN_EXPORT void tarn_add(tarn_work* work,
                          const tarn_attribute* attributes,
                          size_t count) TARN_NOTHROW;

/* A supplement: attributes with the time of the call. */
TARN_EXPORT void tarn_log(tarn_work* work,
                          const tarn_attribute* attributes,
                          size_t count) TARN_NOTHROW;

/* Attributes of everything on the thread until the work ends. Of scopes only. */
TARN_EXPORT void tarn_add_context(tarn_work* work,
                                  const tarn_attribute* attributes,
                                  size_t count) TARN_NOTHROW;

/* Outcomes: the work was canceled, has failed for a reason, or by an exception. The last one that
   is reported counts. */
TARN_EXPORT void tarn_cancel(tarn_work* work,
                             const tarn_attribute* attributes,
                             size_t count) TARN_NOTHROW;
TARN_EXPORT void tarn_fail(tarn_work* work,
                           const char* reason,
                           size_t reason_length,
                           const tarn_attribute* attributes,
                           size_t count) TARN_NOTHROW;
TARN_EXPORT void tarn_fail_exception(tarn_work* work,
                                     const char* type,
                                     size_t type_length,
                                     const char* message,
                                     size_t message_length) TARN_NOTHROW;

enum { TARN_ACTIVITY_ID = 0, TARN_ROOT_ID = 1, TARN_SPONSOR_ID = 2, TARN_REQUEST_ID = 3 };

/* Writes an id with a NUL into `room`, cut if it is too long, and returns its whole length; 0 where
   there are no ids. */
TARN_EXPORT size_t tarn_get_id(const tarn_work* work, int32_t which, char* room, size_t size)
    TARN_NOTHROW;

/* ---- Handing work over */

/* Captures an activity, or without one what is current on the calling thread. The name is for runs
   that have none of their own. The caller owns it; null when memory has run out. Any thread may use
   it, several at once, and any number of times. */
TARN_EXPORT tarn_handoff* tarn_handoff_take(tarn_work* activity,
                                            const char* name,
                                            size_t name_length) TARN_NOTHROW;

/* Adds and removes an owner; the last one frees it. */
TARN_EXPORT void tarn_handoff_retain(tarn_handoff* handoff) TARN_NOTHROW;
TARN_EXPORT void tarn_handoff_release(tarn_handoff* handoff) TARN_NOTHROW;

/* ---- Requests to other processes and from them */

/* Takes one header of a request; the texts are borrowed, and the name ends with a NUL. */
typedef void (*tarn_set_header)(void* target,
                                const char* name,
                                const char* value,
                                size_t value_length);

/* Passes `set` the headers that tell the receiver of a request the thread's current activity: this
   library's, and `traceparent` and `tracestate`. None if nothing is current. */
TARN_EXPORT void tarn_inject(tarn_set_header set, void* target) TARN_NOTHROW;

typedef struct tarn_header_values tarn_header_values;

/* Calls tarn_header_value with each value that the request has for the name, in order. Names of
   headers are the same in upper and lower case. */
typedef void (*tarn_get_header)(const void* source, const char* name, tarn_header_values* values);

TARN_EXPORT void tarn_header_value(tarn_header_values* values,
                                   const char* value,
                                   size_t length) TARN_NOTHROW;

/* Who sent a request, as work that was handed over: it continues under the activity that the
   headers name, as a separate request. If headers are wrong or missing, each run begins a
   tree. The name is for runs that have none; the caller owns the result, as above. */
TARN_EXPORT tarn_handoff* tarn_extract(tarn_get_header get,
                                       const void* source,
                                       const char* name,
                                       size_t name_length) TARN_NOTHROW;

/* As tarn_extract, and sets whom and what the request is for, in each of its lines: "user",
   "req-desc" (a description), "rid" (an id), "sid" (a session), "site". Other names are left
   out. */
TARN_EXPORT tarn_handoff* tarn_extract_request(tarn_get_header get,
                                               const void* source,
                                               const char* name,
                                               size_t name_length,
                                               const tarn_attribute* request,
                                               size_t count) TARN_NOTHROW;

#ifdef __cplusplus
}  // extern "C"
}  // namespace tarn::abi
// NOLINTEND(readability-identifier-naming,modernize-use-using,modernize-deprecated-headers)
#else

#include <string.h>

static inline tarn_attribute tarn_integer(const char* key, int64_t value) {
    tarn_attribute attribute = {key, strlen(key), {.integer = value}, {0}, TARN_INTEGER};
    return attribute;
}

static inline tarn_attribute tarn_natural(const char* key, uint64_t value) {
    tarn_attribute attribute = {key, strlen(key), {.natural = value}, {0}, TARN_NATURAL};
    return attribute;
}

static inline tarn_attribute tarn_real(const char* key, double value) {
    tarn_attribute attribute = {key, strlen(key), {.real = value}, {0}, TARN_REAL};
    return attribute;
}

static inline tarn_attribute tarn_boolean(const char* key, _Bool value) {
    tarn_attribute attribute = {key, strlen(key), {.integer = value}, {0}, TARN_BOOLEAN};
    return attribute;
}

static inline tarn_attribute tarn_text(const char* key, const char* value) {
    tarn_attribute attribute = {
        key, strlen(key), {.text = value}, {value != NULL ? strlen(value) : 0}, TARN_TEXT};
    return attribute;
}

/* A list of attributes, where a function takes a list and its length. */
#define TARN_LIST(...)                     \
    (const tarn_attribute[]){__VA_ARGS__}, \
        sizeof((const tarn_attribute[]){__VA_ARGS__}) / sizeof(tarn_attribute)

#endif
