#include "engine/EngineTables.h"

#include "engine/ActivityRow.h"

namespace tarnview {

namespace {

struct Table {
    const char* name;
    std::string columns;
    const char* order;
    const char* shard;
};

// Rows of a tree side by side are small, and read together.
std::vector<Table> Tables() {
    constexpr const char* byRoot = "cityHash64(toString(root))";
    return {{tables::activities, ActivityColumns(), "root, begin_us, line", byRoot},
            {tables::open, ActivityColumns(), "root, begin_us, line", byRoot},
            {tables::messages, MessageColumns(), "loader, line", "loader"},
            {tables::rejected, RejectedColumns(), "loader, line", "loader"}};
}

std::string Definition(const Table& table, const std::string& engine, const char* settings) {
    return " (" + table.columns + ") ENGINE = " + engine + " PARTITION BY day ORDER BY (" +
           table.order + ") SETTINGS index_granularity = 8192" + settings;
}

}  // namespace

std::vector<std::string> StatementsToCreate(const std::string& database,
                                            const std::string& cluster) {
    std::vector<std::string> statements;
    const std::string on = cluster.empty() ? "" : " ON CLUSTER " + cluster;
    statements.push_back("CREATE DATABASE IF NOT EXISTS " + database + on);
    for (const Table& table : Tables()) {
        const std::string create = "CREATE TABLE IF NOT EXISTS " + database + ".";
        if (cluster.empty()) {
            statements.push_back(create + table.name + Definition(table, "MergeTree", ""));
            continue;
        }
        const std::string local = std::string(table.name) + "_local";
        const std::string path =
            "'/tarnview/" + database + "/{shard}/" + table.name + "', '{replica}'";
        // A block may be sent again after an outage in which others have sent many.
        constexpr const char* remembered = ", replicated_deduplication_window = 10000";
        statements.push_back(create + local + on +
                             Definition(table, "ReplicatedMergeTree(" + path + ")", remembered));
        statements.push_back(create + table.name + on + " (" + table.columns +
                             ") ENGINE = Distributed(" + cluster + ", " + database + ", " + local +
                             ", " + table.shard + ")");
    }
    return statements;
}

}  // namespace tarnview
