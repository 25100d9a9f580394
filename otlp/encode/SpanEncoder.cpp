#include "encode/SpanEncoder.h"

#include "encode/JsonEncoder.h"
#include "encode/ProtobufEncoder.h"
#include "encode/WireReader.h"

#include <simdjson.h>

namespace tarn::otlp {

std::unique_ptr<SpanEncoder> MakeEncoder(Encoding encoding) {
    if (encoding == Encoding::Json) {
        return std::make_unique<JsonEncoder>();
    }
    return std::make_unique<ProtobufEncoder>();
}

std::string ReadErrorMessage(std::string_view contentType, std::string_view body) {
    std::string_view message;
    simdjson::dom::parser parser;
    if (contentType.substr(0, 16) == "application/json") {
        if (parser.parse(body.data(), body.size())["message"].get(message) != simdjson::SUCCESS) {
            message = {};
        }
        return std::string(message);
    }
    if (contentType.substr(0, 22) == "application/x-protobuf") {
        constexpr unsigned messageField = 2;
        WireReader reader(body);
        while (reader.Next()) {
            message = reader.field == messageField ? reader.bytes : message;
        }
        return reader.IsBroken() ? std::string() : std::string(message);
    }
    return {};
}

}  // namespace tarn::otlp
