#pragma once

#include <simdjson.h>
#include <string>

/// A line of a log, with the bytes behind it that its reader wants.
inline std::string Padded(std::string line) {
    line.reserve(line.size() + simdjson::SIMDJSON_PADDING);
    return line;
}

inline constexpr const char* rootId = "766D8930-3A4B-4C5D-8E6F-708192A3B4C5";
inline constexpr const char* childId = "00112233-4455-4677-8899-AABBCCDDEEFF";

/// The begin line of an activity; `more` goes into its table, as R"(,"root":"...")".
inline std::string BeginLine(const std::string& id,
                             const std::string& name,
                             const std::string& more = "",
                             const std::string& body = "{}",
                             int process = 7) {
    return Padded(R"({"time":"2026-11-21T06:02:25.000100Z","severity":"info","event":"begin-)" +
                  name + R"(","pid":)" + std::to_string(process) +
                  R"(,"tid":8,"session":"-","request":"r1","user":"-","site":"shop",)" +
                  R"("environment":{},"activity":{"id":")" + id + R"(","name":")" + name +
                  R"(","type":"begin","depth":0)" + more + R"(},"attributes":{},"body":)" + body +
                  "}");
}

inline std::string EndLine(const std::string& id,
                           const std::string& name,
                           const std::string& more = R"(,"rk":"ok","rv":{})",
                           const std::string& body = "{}",
                           int process = 7,
                           const std::string& attributes = "{}") {
    return Padded(R"({"time":"2026-11-21T06:02:25.002600Z","severity":"info","event":"end-)" +
                  name + R"(","pid":)" + std::to_string(process) +
                  R"(,"tid":8,"session":"s1","request":"r1","user":"ann","site":"shop",)" +
                  R"("environment":{"host":"box"},"activity":{"id":")" + id + R"(","name":")" +
                  name + R"(","type":"end","depth":0,"elapsed":0.002)" + more +
                  R"(},"attributes":)" + attributes + R"(,"body":)" + body + "}");
}
