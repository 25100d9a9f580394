#include "encode/Resources.h"

#include <algorithm>

namespace tarn::otlp {

namespace {

// The last value of a key counts.
std::string_view Find(const Options::Pairs& pairs, std::string_view name) {
    const auto found = std::find_if(
        pairs.rbegin(), pairs.rend(), [&](const auto& pair) { return pair.first == name; });
    return found == pairs.rend() ? std::string_view() : std::string_view(found->second);
}

}  // namespace

void Resources::SetHost(std::int64_t process, std::string_view host) {
    std::string& known = m_hosts[process];
    if (known != host) {
        known = host;
        m_known.clear();
        m_last.reset();
    }
}

const std::shared_ptr<const Resource>& Resources::Of(const ActivityFacts& activity) {
    if (m_last && m_key.first == activity.process && m_key.second == activity.site) {
        return m_last;
    }
    // Sites come from requests.
    constexpr std::size_t mostKnown = 256;
    m_key = {activity.process, std::string(activity.site)};
    if (m_known.size() >= mostKnown) {
        m_known.clear();
    }
    std::shared_ptr<const Resource>& known = m_known[m_key];
    if (!known) {
        known = Make(activity.process, activity.site);
    }
    m_last = known;
    return m_last;
}

std::shared_ptr<const Resource> Resources::Make(std::int64_t process, std::string_view site) const {
    auto resource = std::make_shared<Resource>();
    resource->process = process;
    std::string_view service = !m_service.empty() ? m_service : Find(m_attributes, "service.name");
    if (service.empty()) {
        service = site.empty() || site == "-" ? "unknown_service" : site;
    }
    resource->texts.emplace_back("service.name", service);
    std::string_view host = Find(m_attributes, "host.name");
    for (const std::int64_t key : {process, std::int64_t{0}}) {
        const auto found = m_hosts.find(key);
        host = host.empty() && found != m_hosts.end() ? std::string_view(found->second) : host;
    }
    if (!host.empty()) {
        resource->texts.emplace_back("host.name", host);
    }
    for (const auto& [name, value] : m_attributes) {
        const bool isThere =
            name == "process.pid" ||
            std::any_of(resource->texts.begin(),
                        resource->texts.end(),
                        [&, &key = name](const auto& text) { return text.first == key; });
        if (!isThere) {
            resource->texts.emplace_back(name, Find(m_attributes, name));
        }
    }
    return resource;
}

}  // namespace tarn::otlp
