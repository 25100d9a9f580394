#pragma once

#include "Deadline.h"
#include "PeerClient.h"
#include "QueryService.h"
#include "RequestContext.h"

#include <httplib.h>
#include <string>

namespace packagesearch {

/// What the service answers:
///
///     GET  /queries/KIND?argument=TEXT   one query
///     POST /queries                      one query a line, all at once on the workers
///     GET  /packages/NAME                a package; what asks for it comes from the peer
///     GET  /health                       that it is there
///
/// All take "deadline-ms" too. The service must outlive it; the peer may be null. Any number of
/// threads.
class SearchRoutes {
public:
    SearchRoutes(QueryService& queries, const PeerClient* peer) noexcept
        : m_queries(queries),
          m_peer(peer) {}

    /// The answer as JSON. Throws `HttpFailure`, `DeadlineExceeded`, `sqlite::SqliteError`; what
    /// it had begun on the workers is over then.
    std::string Answer(const httplib::Request& request,
                       const RequestAttributes& attributes,
                       const WorkLimits& limits) const;

private:
    std::string AnswerQuery(const httplib::Request& request,
                            const std::string& kind,
                            const WorkLimits& limits) const;
    std::string AnswerQueries(const httplib::Request& request, const WorkLimits& limits) const;
    std::string AnswerPackage(const httplib::Request& request,
                              const std::string& name,
                              const RequestAttributes& attributes,
                              const WorkLimits& limits) const;

    QueryService& m_queries;
    const PeerClient* m_peer;
};

}  // namespace packagesearch
