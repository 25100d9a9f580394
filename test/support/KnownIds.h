#pragma once

#include "tarn/IMetricsMonitorUUID.h"

#include "cvlcoreplatform/TUUID.h"

#include <memory>
#include <string>

namespace tarn::test {

/// Ids that a test knows beforehand: 00000000-0000-4000-8000-000000000001, then ...2, and so on.
class KnownIds : public IMetricsMonitorUUID {
public:
    /// `made` counts the ids that were handed out; it is the test's, as the monitor owns this
    /// object.
    explicit KnownIds(std::shared_ptr<int> made = std::make_shared<int>(0));
    ~KnownIds() override;

    TUUID CreateUUID() override;

    /// The text of the `number`th id, counted from 1, as in log events.
    static std::string Text(int number);

private:
    std::shared_ptr<int> m_made;
};

}  // namespace tarn::test
