#include "QueryService.h"

#include "ActivityNames.h"

#include "tarn/ActivityScope.h"
#include "tarn/ActivityTokens.h"
#include "tarn/ContextAttributesUtils.h"

#include <atomic>
#include <exception>
#include <thread>
#include <utility>

namespace packagesearch {

QueryService::QueryService(const PackageDatabase& database, std::size_t workers)
    : m_readers([&] {
          std::vector<PackageReader> readers;
          for (std::size_t worker = 0; worker < workers; ++worker) {
              readers.emplace_back(database);
          }
          return readers;
      }()),
      m_workers(workers) {}

Pending<QueryResult> QueryService::Start(const Query& query, const WorkLimits& limits) {
    return m_workers.Submit(activity::run, [this, query, limits](std::size_t worker) {
        return RunQuery(m_readers[worker], query, limits);
    });
}

QueryResult QueryService::Answer(RequestAttributes request, const Query& query) {
    request.description = query.Text();
    const RequestContext context(request);
    tarn::ActivityScope scope(
        activity::query, {{attribute::kind, query.kind}, {attribute::argument, query.argument}});
    // What turns up only while the request is being served is added to it then; the lines that
    // follow have it, those of the workers too.
    tarn::ContextAttributesUtils::Set({{ActivityTokens::viewAttr, query.kind}});
    QueryResult result = Start(query).Get();
    scope.Add({{attribute::rows, result.rows.size()}});
    return result;
}

std::vector<Answer> AskAll(QueryService& service,
                           const std::vector<Query>& queries,
                           std::size_t clients,
                           const RequestAttributes& request) {
    std::vector<Answer> answers(queries.size());
    std::atomic<std::size_t> next{0};
    const auto ask = [&](std::size_t client) {
        RequestAttributes mine = request;
        mine.sessionId = "client-" + std::to_string(client + 1);
        for (std::size_t index = next++; index < queries.size(); index = next++) {
            try {
                answers[index].result = service.Answer(mine, queries[index]);
            } catch (const std::exception& problem) {
                answers[index].error = problem.what();
            }
        }
    };
    std::vector<std::thread> threads;
    for (std::size_t client = 0; client < clients; ++client) {
        threads.emplace_back(ask, client);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return answers;
}

}  // namespace packagesearch
