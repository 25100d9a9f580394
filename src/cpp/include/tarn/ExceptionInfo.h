#pragma once

#include "cvlcoreplatform/TString.h"

namespace tarn {

/// An exception as texts. A record; what is not known is empty.
struct ExceptionInfo {
    TString type;  ///< readable name of the dynamic type
    TString message;
    TString infoMember1;  ///< the three texts of the host's error information, in its order
    TString infoMember2;
    TString infoMember3;
};

}  // namespace tarn
