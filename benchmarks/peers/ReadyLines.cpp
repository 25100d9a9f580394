#include "peers/ReadyLines.h"

namespace benchmarks {

ReadyLines MakeReadyLines(const std::string& lineEnd) {
    TracingUnderTest tracing({.receiver = Receiver::File}, 1);
    const OpenParents parents(1);
    const ScopeLines lines = tracing.LinesOfProbe(measuredName);
    return {ReadyLine(lines.begin + lineEnd), ReadyLine(lines.end + lineEnd)};
}

}  // namespace benchmarks
