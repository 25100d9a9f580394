#include "engine/LoadCheckpoint.h"

#include "output/OutputFile.h"

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>
#include <xxhash.h>

namespace tarnview {

namespace {

constexpr std::string_view signature = "tarnview load, checkpoint 1\n";

// Numbers of variable length, texts with theirs in front, a checksum behind all.
class Reader {
public:
    Reader(std::string_view bytes, const std::string& path) : m_bytes(bytes), m_path(path) {}

    std::uint64_t Number() {
        std::uint64_t number = 0;
        for (unsigned shift = 0; shift < 64; shift += 7) {
            const auto byte = static_cast<unsigned char>(Take(1).front());
            number |= std::uint64_t{byte & 0x7FU} << shift;
            if (byte < 0x80) {
                return number;
            }
        }
        Refuse();
    }

    std::string Text() { return std::string(Take(Number())); }

    std::string_view Take(std::uint64_t length) {
        if (length > m_bytes.size()) {
            Refuse();
        }
        const std::string_view bytes = m_bytes.substr(0, length);
        m_bytes.remove_prefix(length);
        return bytes;
    }

    [[noreturn]] void Refuse() const {
        throw std::runtime_error(m_path + " is no checkpoint of tarnview load, or is damaged");
    }

private:
    std::string_view m_bytes;
    const std::string& m_path;
};

void AppendText(std::string& to, std::string_view text) {
    AppendVarUInt(to, text.size());
    to += text;
}

}  // namespace

LoadCheckpoint::FileId LoadCheckpoint::IdOf(std::string_view firstLine) {
    const XXH128_hash_t hash = XXH3_128bits(firstLine.data(), firstLine.size());
    return {hash.high64, hash.low64};
}

bool LoadCheckpoint::Load(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        if (errno == ENOENT) {
            return false;
        }
        throw std::system_error(errno, std::generic_category(), path);
    }
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    Reader outer(text, path);
    if (text.size() < signature.size() || outer.Take(signature.size()) != signature) {
        outer.Refuse();
    }
    const std::uint64_t checksum = outer.Number();
    const std::string body = outer.Text();
    if (XXH3_64bits(body.data(), body.size()) != checksum) {
        outer.Refuse();
    }
    Reader reader(body, path);
    loader = reader.Number();
    block = static_cast<std::uint32_t>(reader.Number());
    lines = reader.Number();
    for (std::uint64_t count = reader.Number(); count != 0; --count) {
        FileId id;
        id.first = reader.Number();
        id.second = reader.Number();
        File& entry = files[id];
        entry.offset = reader.Number();
        entry.lines = reader.Number();
        entry.base = reader.Number();
    }
    open = reader.Text();
    for (std::uint64_t count = reader.Number(); count != 0; --count) {
        PendingInsert& insert = pending.emplace_back();
        insert.table = reader.Text();
        insert.day = static_cast<std::uint16_t>(reader.Number());
        insert.rows = reader.Number();
        insert.columns = reader.Text();
        insert.data = reader.Text();
    }
    return true;
}

void LoadCheckpoint::Save(const std::string& path) const {
    std::string body;
    AppendVarUInt(body, loader);
    AppendVarUInt(body, block);
    AppendVarUInt(body, lines);
    AppendVarUInt(body, files.size());
    for (const auto& [id, entry] : files) {
        for (const std::uint64_t number :
             {id.first, id.second, entry.offset, entry.lines, entry.base}) {
            AppendVarUInt(body, number);
        }
    }
    AppendText(body, open);
    AppendVarUInt(body, pending.size());
    for (const PendingInsert& insert : pending) {
        AppendText(body, insert.table);
        AppendVarUInt(body, insert.day);
        AppendVarUInt(body, insert.rows);
        AppendText(body, insert.columns);
        AppendText(body, insert.data);
    }
    std::string head(signature);
    AppendVarUInt(head, XXH3_64bits(body.data(), body.size()));
    AppendVarUInt(head, body.size());
    OutputFile file(path);
    file.Stream() << head << body;
    file.Commit();
}

CheckpointLock::CheckpointLock(const std::string& checkpoint)
    : m_descriptor(open((checkpoint + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666)) {
    if (m_descriptor == -1) {
        throw std::system_error(errno, std::generic_category(), checkpoint + ".lock");
    }
    if (flock(m_descriptor, LOCK_EX | LOCK_NB) != 0) {
        close(m_descriptor);
        throw std::runtime_error(checkpoint + " is in use by another 'tarnview load'");
    }
}

CheckpointLock::~CheckpointLock() {
    close(m_descriptor);
}

}  // namespace tarnview
