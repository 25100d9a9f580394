#include "commands/PushCheckpoint.h"

#include "export/Json.h"
#include "output/OutputFile.h"

#include <algorithm>
#include <cerrno>
#include <simdjson.h>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <xxhash.h>

namespace tarnview {

namespace {

constexpr std::int64_t version = 1;

[[noreturn]] void Refuse(const std::string& path) {
    throw std::runtime_error(path + " is no checkpoint of tarnview push");
}

}  // namespace

PushCheckpoint::FileId PushCheckpoint::IdOf(int descriptor) {
    struct stat status {};

    FileId id;
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        return id;
    }
    // A line grows until its end is there.
    char beginning[512];
    const ssize_t count = pread(descriptor, beginning, sizeof(beginning), 0);
    const std::string_view read(beginning, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    const std::string_view line = read.substr(0, read.find('\n'));
    if (line.size() == read.size() && read.size() < sizeof(beginning)) {
        return id;
    }
    id.device = status.st_dev;
    id.inode = status.st_ino;
    id.beginning = XXH3_64bits(line.data(), line.size());
    return id;
}

std::uint64_t PushCheckpoint::OffsetOf(const FileId& id) const {
    const auto found = std::find_if(
        m_files.begin(), m_files.end(), [&](const Entry& entry) { return entry.id == id; });
    return found == m_files.end() || id == FileId() ? 0 : found->offset;
}

void PushCheckpoint::SetOffset(const FileId& id, std::uint64_t offset) {
    const auto found = std::find_if(
        m_files.begin(), m_files.end(), [&](const Entry& entry) { return entry.id == id; });
    if (id == FileId()) {
        return;
    }
    if (found == m_files.end()) {
        m_files.push_back({id, offset});
    } else {
        found->offset = offset;
    }
}

void PushCheckpoint::KeepOnly(const std::vector<FileId>& ids) {
    m_files.erase(std::remove_if(m_files.begin(),
                                 m_files.end(),
                                 [&](const Entry& entry) {
                                     return std::find(ids.begin(), ids.end(), entry.id) ==
                                            ids.end();
                                 }),
                  m_files.end());
}

void PushCheckpoint::Load(const std::string& path) {
    simdjson::padded_string text;
    if (access(path.c_str(), F_OK) != 0 && errno == ENOENT) {
        return;
    }
    if (access(path.c_str(), R_OK) != 0 ||
        simdjson::padded_string::load(path).get(text) != simdjson::SUCCESS) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    simdjson::dom::parser parser;
    simdjson::dom::object members;
    simdjson::dom::array files;
    simdjson::dom::array lines;
    std::int64_t number = 0;
    if (parser.parse(text).get(members) != simdjson::SUCCESS ||
        members["tarnview-push"].get(number) != simdjson::SUCCESS || number != version ||
        members["files"].get(files) != simdjson::SUCCESS ||
        members["open"].get(lines) != simdjson::SUCCESS) {
        Refuse(path);
    }
    for (const simdjson::dom::element file : files) {
        Entry entry;
        const auto read = [&](const char* name, std::uint64_t& to) {
            std::string_view digits;
            if (file[name].get(digits) != simdjson::SUCCESS || digits.empty() ||
                digits.size() > 20 ||
                digits.find_first_not_of("0123456789") != std::string_view::npos) {
                Refuse(path);
            }
            to = std::stoull(std::string(digits));
        };
        read("device", entry.id.device);
        read("inode", entry.id.inode);
        read("beginning", entry.id.beginning);
        read("offset", entry.offset);
        m_files.push_back(entry);
    }
    for (const simdjson::dom::element line : lines) {
        std::string_view open;
        if (line.get(open) != simdjson::SUCCESS) {
            Refuse(path);
        }
        openLines.emplace_back(open);
    }
}

void PushCheckpoint::Save(const std::string& path) const {
    OutputFile file(path);
    Json json(file.Stream());
    json.BeginObject();
    json.Key("tarnview-push");
    json.Number(static_cast<long long>(version));
    json.Key("files");
    json.BeginArray();
    for (const Entry& entry : m_files) {
        json.BeginObject();
        json.Member("device", std::to_string(entry.id.device));
        json.Member("inode", std::to_string(entry.id.inode));
        json.Member("beginning", std::to_string(entry.id.beginning));
        json.Member("offset", std::to_string(entry.offset));
        json.EndObject();
    }
    json.EndArray();
    json.Key("open");
    json.BeginArray();
    for (const std::string& line : openLines) {
        json.Text(line);
    }
    json.EndArray();
    json.EndObject();
    file.Stream() << '\n';
    file.Commit();
}

}  // namespace tarnview
