#pragma once

#include <ostream>
#include <streambuf>
#include <string>
#include <vector>

namespace tarnview {

/// Where data go: a file that comes into being, or is replaced, only when all of it has been
/// written, or the standard output stream if the path is empty. Used by one thread. Of a file that
/// is not complete nothing stays when SIGHUP, SIGINT or SIGTERM end the program; one file at a
/// time.
class OutputFile : private std::streambuf {
public:
    /// Throws `std::system_error` naming the path if the file cannot be made.
    explicit OutputFile(const std::string& path);

    /// Without Commit() nothing of the file stays, and one that was there before is untouched.
    ~OutputFile() override;
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    std::ostream& Stream() { return m_stream; }

    /// Everything has been written. Throws `std::system_error` if something could not be; a
    /// standard output whose reader has gone away is no failure.
    void Commit();

private:
    int_type overflow(int_type character) override;
    int sync() override;
    bool WriteOut();

    std::string m_path;
    std::string m_temporaryPath;
    int m_descriptor = -1;
    int m_error = 0;
    std::vector<char> m_buffer;
    std::ostream m_stream;
};

}  // namespace tarnview
