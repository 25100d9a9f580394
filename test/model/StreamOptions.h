#pragma once

#include "Observation.h"

#include "cvlsys/IntegerTypes.h"

#include <array>
#include <string>
#include <vector>

namespace model {

/// One change of the settings' attribute mappings. An addition with a target that is not allowed
/// is among the things to try.
struct MappingChange {
    bool remove = false;
    std::u16string name;
    std::u16string target;
};

/// Everything process-wide that a monitor reads while it works, as chosen for (a part of) one
/// stream. A value; the model reads it and the run of the library sets it.
struct StreamOptions {
    bool isTarnEnabled = true;
    bool isTarnPlatforms = false;
    bool isForegroundThreadContextEnabled = false;
    bool isServer = false;
    bool isUnitTest = true;
    bool shouldLogForegroundActivity = false;
    bool shouldLogResourceTracking = false;
    bool shouldLogTransparent = false;
    int32 memoryModeOverride = 0;
    std::u16string defaultSiteName;
    std::u16string serverEnvironment;
    std::vector<MappingChange> mappingChanges;  ///< applied in order to the default mappings
    std::array<bool, numberOfCounters> counterIsAttached{true, true, true, true, true, true};
    std::array<std::string, numberOfCounters> counterNames;
    bool counterCallbackIsSet = true;
    bool counterCallbackThrows = false;
    int32 severityThreshold = 0;  ///< of the host's logger
};

/// Facts about the process that events show and streams do not change.
struct ProcessFacts {
    std::u16string hostName;
    uint32 processId = 0;
    int32 memoryMode = 0;             ///< outside unit-test mode
    bool cpuTrackingEnabled = false;  ///< outside unit-test mode
};

}  // namespace model
