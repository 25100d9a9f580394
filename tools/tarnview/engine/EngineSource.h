#pragma once

#include "engine/ActivityRow.h"
#include "engine/EngineClient.h"
#include "model/ActivitySource.h"

#include <memory>
#include <string>
#include <vector>

namespace tarnview {

/// Logs that were loaded into an engine.
class EngineSource final : public ActivitySource {
public:
    explicit EngineSource(EngineAddress address) : m_client(std::move(address)) {}

    void Read(const Selection& selection, const OnActivity& onActivity) override;
    void ReadOpen(bool wantsTables, const OnActivity& onActivity) override;
    void ReadMessages(const LogScanner::OnLine& onLine) override;
    void ReadSignsOfLife(bool wantsHosts, const LogScanner::OnLine& onLine) override;
    std::optional<std::vector<TopRow>> Top(const std::vector<std::string>& groups,
                                           const Filter& filter) override;
    Microseconds FirstTime() override;
    Microseconds LastTime() override;

private:
    void Stream(const std::string& statement, const NativeReader::OnRow& onRow);
    void ReadActivities(const std::string& table,
                        const std::string& condition,
                        const Selection& selection,
                        const OnActivity& onActivity);
    void ReadMessages(const std::string& condition,
                      const std::function<void(const MessageRow&)>& onRow);
    Microseconds AskTime(const std::string& expression, const std::string& begin);

    EngineClient m_client;
    TextPool m_files;
};

/// The logs in the database of an engine, "http://HOST:8123/DATABASE". Throws
/// `std::invalid_argument` if it is no such URL.
std::unique_ptr<ActivitySource> OpenEngine(const std::string& url);

}  // namespace tarnview
