#include "cvlcoreplatform/ComputerName.h"

#include <array>
#include <climits>
#include <unistd.h>

namespace TSystem {

TString ComputerName() {
    // One more than the longest name, because a name that is cut may lack its end.
    std::array<char, HOST_NAME_MAX + 2> name{};
    if (gethostname(name.data(), name.size() - 1) != 0) {
        return TString();
    }
    return TString(name.data());
}

}  // namespace TSystem
