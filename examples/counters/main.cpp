// Counts by the names of activities, as a monitoring system asks for them: a program answers
// GET /metrics with the whole text, of which this prints the counts.
#include "tarn/Prometheus.h"
#include "tarn/Session.h"
#include "tarn/Trace.h"

#include <iostream>
#include <sstream>
#include <string>

int main() {
    tarn::SessionOptions options;
    options.log = "/dev/null";
    options.counters = true;
    options.countedNames = 2;
    const tarn::Session session(options);

    for (const char* const name : {"load", "parse", "load", "print", "check"}) {
        tarn::Scope scope(name);
        if (name == std::string("parse")) {
            scope.Fail("not a number");
        }
    }

    std::istringstream text(tarn::PrometheusText());
    for (std::string line; std::getline(text, line);) {
        for (const char* const family : {"tarn_activity_duration_seconds_count",
                                         "tarn_activity_failures_total",
                                         "tarn_activity_names",
                                         "tarn_scopes_opened_total"}) {
            if (line.rfind(family, 0) == 0) {
                std::cout << line << std::endl;
            }
        }
    }
}
