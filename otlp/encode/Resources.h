#pragma once

#include "encode/SpanEncoder.h"
#include "span/ActivityFacts.h"

#include "tarn/otlp/Options.h"

#include <map>
#include <memory>
#include <string>
#include <utility>

namespace tarn::otlp {

/// Says who a span is from. Used by one thread.
class Resources {
public:
    explicit Resources(const Options& options)
        : m_service(options.serviceName),
          m_attributes(options.resourceAttributes) {}

    /// The host of a process. That of process 0 is the host of all that are not known.
    void SetHost(std::int64_t process, std::string_view host);

    /// The same object as for the last span, if it is the same resource.
    const std::shared_ptr<const Resource>& Of(const ActivityFacts& activity);

private:
    std::shared_ptr<const Resource> Make(std::int64_t process, std::string_view site) const;

    using Key = std::pair<std::int64_t, std::string>;

    const std::string m_service;
    const Options::Pairs m_attributes;
    std::map<std::int64_t, std::string> m_hosts;
    std::map<Key, std::shared_ptr<const Resource>> m_known;
    Key m_key;
    std::shared_ptr<const Resource> m_last;
};

}  // namespace tarn::otlp
