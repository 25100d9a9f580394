#include "StaticText.h"

#include "NeverDestroyed.h"

#include "cvlsys/TReadWriteLock.h"

#include <cstddef>
#include <string>
#include <unordered_set>

namespace tarn {
namespace {

constexpr std::size_t mostNames = 4096;
constexpr std::size_t longestName = 64;

class Names {
public:
    TString Find(const TString& name) {
        const TReadWriteLock::WriteGuard guard(m_lock);
        const std::u16string text(name.View());
        auto known = m_names.find(text);
        if (known == m_names.end()) {
            if (m_names.size() == mostNames) {
                return name;
            }
            known = m_names.insert(text).first;
        }
        return TString::ReferTo(*known);
    }

private:
    // Unlike a mutex it is free in a forked child.
    TReadWriteLock m_lock{0};
    // Its elements stay where they are.
    std::unordered_set<std::u16string> m_names;
};

Names& GetNames() {
    static NeverDestroyed<Names> names;
    return names.Get();
}

// While the library is loaded, so that no first use can meet a fork.
[[maybe_unused]] const Names& madeAtLoad = GetNames();

}  // namespace

TString MakeStaticText(const TString& name) {
    if (name.IsEmpty() || name.Length() > longestName || IsStaticText(name.SharedCharacters())) {
        return name;
    }
    return GetNames().Find(name);
}

Metrics::MetricsValue ReferToStaticText(const std::string& text) noexcept {
    Metrics::MetricsValue value;
    value.type = Metrics::MetricsValue::MV_Utf8String;
    value.utf8 = {std::shared_ptr<const std::string>(), &text};
    return value;
}

}  // namespace tarn
