#pragma once

/// The names that this program gives to its activities and to their attributes. They are what one
/// asks tarnview for.
namespace packagesearch::activity {

// The load, on the main thread.
inline constexpr const char* load = "load";
inline constexpr const char* parseStatusFile = "parse-status-file";
inline constexpr const char* createTables = "create-tables";
inline constexpr const char* insertBatch = "insert-batch";
inline constexpr const char* buildIndexes = "build-indexes";
inline constexpr const char* chooseQueries = "choose-queries";

// A query: the root on the asking thread, the rest on a worker.
inline constexpr const char* query = "query";
inline constexpr const char* run = "run";
inline constexpr const char* prepare = "prepare";
inline constexpr const char* execute = "execute";
inline constexpr const char* fetch = "fetch";

// A request of the service: the first one may go on where another process left off; the second one
// is the work for it on the thread that serves it.
inline constexpr const char* httpRequest = "http-request";
inline constexpr const char* answer = "answer";
inline constexpr const char* callPeer = "call-peer";

}  // namespace packagesearch::activity

namespace packagesearch::attribute {

inline constexpr const char* path = "path";
inline constexpr const char* bytes = "bytes";
inline constexpr const char* packages = "packages";
inline constexpr const char* notInstalled = "not-installed";
inline constexpr const char* dependencies = "dependencies";
inline constexpr const char* wordSearch = "word-search";
inline constexpr const char* queries = "queries";
inline constexpr const char* kind = "kind";
inline constexpr const char* argument = "argument";
inline constexpr const char* worker = "worker";
inline constexpr const char* waitedMicroseconds = "waited-us";
inline constexpr const char* cached = "cached";
inline constexpr const char* rows = "rows";
inline constexpr const char* slowStep = "slow-step";
inline constexpr const char* milliseconds = "ms";
inline constexpr const char* limitMilliseconds = "limit-ms";
inline constexpr const char* reason = "reason";
inline constexpr const char* message = "msg";
inline constexpr const char* status = "status";
inline constexpr const char* sqliteCode = "sqlite-code";
inline constexpr const char* peer = "peer";

}  // namespace packagesearch::attribute
