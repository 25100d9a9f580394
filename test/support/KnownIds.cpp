#include "KnownIds.h"

#include "cvlcoreplatform/TString.h"

#include <cstdio>
#include <utility>

namespace tarn::test {

KnownIds::KnownIds(std::shared_ptr<int> made) : m_made(std::move(made)) {}

KnownIds::~KnownIds() = default;

TUUID KnownIds::CreateUUID() {
    ++*m_made;
    return TUUID(TString(Text(*m_made)));
}

std::string KnownIds::Text(int number) {
    char text[37];
    std::snprintf(
        text, sizeof(text), "00000000-0000-4000-8000-%012X", static_cast<unsigned>(number));
    return text;
}

}  // namespace tarn::test
