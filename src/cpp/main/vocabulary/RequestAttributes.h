#pragma once

#include "cvlsys/IntegerTypes.h"

/// The attributes of a request that the log knows, one line for each: its name in the code, its
/// token, and who may give it. `Mappable` ones scopes give by any name that is mapped to the token
/// (`TarnSettings`), and the host by the token itself; the others only the host gives, to a
/// context. A row is all that the settings, the monitor and the records of requests have to know;
/// what the log says of it, `EventTable.cpp` tells.
#define TARN_REQUEST_ATTRIBUTES(X)                      \
    X(ContextId, cidAttr, Given)                        \
    X(ProcessId, pidAttr, Given)                        \
    X(RequestId, ridAttr, Mappable)                     \
    X(RequestDescription, requestDescription, Mappable) \
    X(SessionId, sidAttr, Mappable)                     \
    X(ThreadId, tidAttr, Given)                         \
    X(Site, siteAttr, Mappable)                         \
    X(User, userAttr, Mappable)                         \
    X(Workbook, workbookAttr, Mappable)                 \
    X(View, viewAttr, Mappable)

namespace tarn {

/// The codes of their names.
enum class ContextAttributeName : int32 {
#define TARN_REQUEST_ATTRIBUTE_NAME(name, token, kind) name,
    TARN_REQUEST_ATTRIBUTES(TARN_REQUEST_ATTRIBUTE_NAME)
#undef TARN_REQUEST_ATTRIBUTE_NAME
        Unknown
};

enum class RequestAttributeKind { Given, Mappable };

}  // namespace tarn
