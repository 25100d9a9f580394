// The two records of a scope for LTTng-UST. Its macros include this header several times, so it is
// guarded as they want it.

#undef LTTNG_UST_TRACEPOINT_PROVIDER
#define LTTNG_UST_TRACEPOINT_PROVIDER tarn_benchmark

#undef LTTNG_UST_TRACEPOINT_INCLUDE
#define LTTNG_UST_TRACEPOINT_INCLUDE "peers/LttngTracepoints.h"

#if !defined(TARN_BENCHMARKS_LTTNG_TRACEPOINTS_H) || defined(LTTNG_UST_TRACEPOINT_HEADER_MULTI_READ)
#define TARN_BENCHMARKS_LTTNG_TRACEPOINTS_H

#include <cstdint>
#include <lttng/tracepoint.h>

// clang-format off
LTTNG_UST_TRACEPOINT_EVENT(
    tarn_benchmark,
    scope_begin,
    LTTNG_UST_TP_ARGS(std::uint64_t, idHigh, std::uint64_t, idLow, const char*, name,
                      const char*, table, const char*, order, const char*, client),
    LTTNG_UST_TP_FIELDS(
        lttng_ust_field_integer_hex(std::uint64_t, id_high, idHigh)
        lttng_ust_field_integer_hex(std::uint64_t, id_low, idLow)
        lttng_ust_field_string(name, name)
        lttng_ust_field_string(table, table)
        lttng_ust_field_string(order, order)
        lttng_ust_field_string(client, client)))

LTTNG_UST_TRACEPOINT_EVENT(
    tarn_benchmark,
    scope_end,
    LTTNG_UST_TP_ARGS(std::uint64_t, idHigh, std::uint64_t, idLow, const char*, name),
    LTTNG_UST_TP_FIELDS(
        lttng_ust_field_integer_hex(std::uint64_t, id_high, idHigh)
        lttng_ust_field_integer_hex(std::uint64_t, id_low, idLow)
        lttng_ust_field_string(name, name)))
// clang-format on

#endif

#include <lttng/tracepoint-event.h>
