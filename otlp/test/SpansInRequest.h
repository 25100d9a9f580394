#pragma once

#include "encode/WireReader.h"

#include <cstddef>
#include <set>
#include <string>

/// The spans of a request in protobuf, each with its resource before it, both as they are encoded.
inline std::multiset<std::string> SpansInRequest(const std::string& body) {
    using tarn::otlp::WireReader;
    std::multiset<std::string> spans;
    WireReader request(body);
    while (request.Next()) {
        std::string resource;
        WireReader part(request.bytes);
        while (part.Next()) {
            if (part.field == 1) {
                resource = part.bytes;
                continue;
            }
            WireReader scope(part.bytes);
            while (scope.Next()) {
                if (scope.field == 2) {
                    spans.insert(resource + "|" + std::string(scope.bytes));
                }
            }
        }
    }
    return spans;
}
