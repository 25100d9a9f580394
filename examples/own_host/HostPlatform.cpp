// A custom host, middle layer: ids, and a logger that prints.
#include "cvlcoreplatform/ComputerName.h"
#include "cvlcoreplatform/CorePlatformOptions.h"
#include "cvlcoreplatform/TLog.h"
#include "cvlcoreplatform/TUUID.h"

#include <array>
#include <cstring>
#include <iostream>
#include <random>
#include <string>

TString TSystem::ComputerName() {
    return u"own-host";
}

// This host does not ask whether tracing is on.
void CorePlatformOptions::SetIsTarnEnabledFunction(std::function<bool()> /*isTarnEnabled*/) {}

TUUID TUUID::CreateUUID() {
    std::random_device system;
    const std::array<unsigned, 4> bits{system(), system(), system(), system()};
    std::array<unsigned char, 16> bytes{};
    std::memcpy(bytes.data(), bits.data(), bytes.size());
    // Version 4, of the variant of RFC 4122.
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
    return TUUID(bytes);
}

namespace TLog {

namespace {

std::string Describe(const Event& event) {
    std::string text = event.GetName().ToUtf8();
    if (const ActivityInfo* const information = event.GetActivityInfo()) {
        const auto& activity = static_cast<const Object&>(*information->GetActivity());
        for (const char16_t* const name : {u"id", u"sponsor"}) {
            const auto field = activity.GetFields().find(name);
            if (field != activity.GetFields().end()) {
                text += ' ' + TString(name).ToUtf8() + ' ' +
                        static_cast<const Literal&>(*field->second).GetString().ToUtf8();
            }
        }
    }
    return text;
}

}  // namespace

Logger& Logger::Get() noexcept {
    static Logger logger;
    return logger;
}

bool Logger::IsEnabled(Severity severity) const noexcept {
    return severity >= Info;
}

void Logger::Log(Severity severity, const Event& event) noexcept {
    if (IsEnabled(severity)) {
        std::cout << Describe(event) + '\n';
    }
}

void Logger::LogMessage(Severity severity, const TString& text) noexcept {
    if (IsEnabled(severity)) {
        std::cout << text.ToUtf8() + '\n';
    }
}

}  // namespace TLog
