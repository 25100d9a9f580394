#pragma once

#include "tarn/ActivityContextProxy.h"

#include <httplib.h>
#include <string>

namespace packagesearch {

/// What the headers of a request say about the activity that it is a part of.
struct ReceivedContext {
    /// For the proxy, which takes the context over; empty when there is none to take.
    tarn::ActivityContextProxy::Attributes attributes;

    /// Why headers that are there are not used; empty when all is well. Repeats nothing of them.
    std::string problem;
};

/// Reads the two headers that a caller's tracer wrote, as "ROOT:ROOT:0" and the depth of the
/// calling activity. They come from outside: what the tracer would not have written is not used,
/// because any text there would become the key by which logs are joined.
ReceivedContext ReadTracingHeaders(const httplib::Headers& headers);

}  // namespace packagesearch
