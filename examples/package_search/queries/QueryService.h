#pragma once

#include "PackageDatabase.h"
#include "Queries.h"
#include "RequestContext.h"
#include "WorkerPool.h"

#include <cstddef>
#include <string>
#include <vector>

namespace packagesearch {

/// Answers queries: each is a traced request of its own, begun on the thread that asks and worked
/// on by a pool. The database must outlive it and must not change any more.
class QueryService {
public:
    QueryService(const PackageDatabase& database, std::size_t workers);

    /// Begins to work on a query, as a part of the caller's current activity. Any thread may ask,
    /// except the service's own workers. The result's `GetBefore` should be told the same deadline.
    /// It throws what `RunQuery` throws.
    Pending<QueryResult> Start(const Query& query, const WorkLimits& limits = {});

    /// A whole request with one query; waits for the answer. Any thread may ask, except the
    /// service's own workers. The request's description is the query's text. Throws what `RunQuery`
    /// throws; the log shows such a request as terminated early.
    QueryResult Answer(RequestAttributes request, const Query& query);

private:
    std::vector<PackageReader> m_readers;  // one for each worker

    // The last member: its destructor waits for work that uses the others.
    WorkerPool m_workers;
};

/// What became of one query.
struct Answer {
    QueryResult result;
    std::string error;  ///< one line; empty when there is a result
};

/// Asks all queries from as many threads as told, each thread as one client, and returns the
/// answers in the order of the queries.
std::vector<Answer> AskAll(QueryService& service,
                           const std::vector<Query>& queries,
                           std::size_t clients,
                           const RequestAttributes& request);

}  // namespace packagesearch
