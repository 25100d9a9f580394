#include "engine/EngineAddress.h"

#include <algorithm>
#include <stdexcept>

namespace tarnview {

namespace {

// Goes into statements as it is.
bool IsDatabaseName(const std::string& name) {
    const auto isLetter = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
    };
    return !name.empty() && isLetter(name.front()) &&
           std::all_of(name.begin(), name.end(), [&](char c) {
               return isLetter(c) || (c >= '0' && c <= '9');
           });
}

}  // namespace

EngineAddress EngineAddress::Parse(const std::string& text) {
    const std::size_t scheme = text.find("://");
    if (text.rfind("http://", 0) != 0 && text.rfind("https://", 0) != 0) {
        throw std::invalid_argument("'" + text + "' begins with neither http:// nor https://");
    }
    const std::size_t path = text.find('/', scheme + 3);
    EngineAddress address;
    address.url = text.substr(0, path) + "/";
    address.database = path == std::string::npos ? "" : text.substr(path + 1);
    if (!address.database.empty() && address.database.back() == '/') {
        address.database.pop_back();
    }
    if (path == scheme + 3 || !IsDatabaseName(address.database)) {
        throw std::invalid_argument("'" + text +
                                    "' is no http://HOST:8123/DATABASE; a database's name has "
                                    "letters, digits and '_'");
    }
    return address;
}

std::string EngineAddress::Shown() const {
    const std::size_t host = url.find("://") + 3;
    const std::size_t at = url.find('@', host);
    return url.substr(0, host) + url.substr(at == std::string::npos ? host : at + 1) + database;
}

}  // namespace tarnview
