#pragma once

#include <string>

namespace tarnview {

/// Where an engine answers, and in which of its databases the logs are. A value.
struct EngineAddress {
    std::string url;  ///< "http://HOST:PORT/", with user and password if they were given
    std::string database;

    /// Of "http://HOST:8123/DATABASE". Throws `std::invalid_argument` saying what is wrong.
    static EngineAddress Parse(const std::string& text);

    /// To be shown: without user and password.
    std::string Shown() const;
};

}  // namespace tarnview
