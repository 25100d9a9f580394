#include "engine/EngineClient.h"

#include "send/Gzip.h"

#include <algorithm>
#include <curl/curl.h>
#include <exception>
#include <mutex>
#include <new>
#include <optional>

namespace tarnview {

namespace {

constexpr long okStatus = 200;

// "Code: 60, e.displayText() = DB::Exception: Table ... doesn't exist., e.what() = DB::Exception",
// in newer engines "Code: 60. DB::Exception: ...".
std::optional<int> CodeIn(std::string_view text) {
    constexpr std::string_view beginning = "Code: ";
    const std::size_t begin = text.find(beginning);
    if (begin == std::string_view::npos) {
        return std::nullopt;
    }
    int code = 0;
    for (const char letter : text.substr(begin + beginning.size(), 6)) {
        if (letter < '0' || letter > '9') {
            break;
        }
        code = code * 10 + (letter - '0');
    }
    return code;
}

EngineError ErrorFrom(std::string text, const std::string& otherwise) {
    const auto code = CodeIn(text);
    if (!code) {
        return {otherwise, 0};
    }
    constexpr std::string_view last = ", e.what() = ";
    text = text.substr(text.find("Code: "));
    // "All connection tries failed. Log: ": which ones, is said on the lines behind.
    if (text.find("Log: \n") != std::string::npos) {
        std::replace(text.begin(), text.end(), '\n', ' ');
    }
    text = text.substr(0, std::min(text.find(last), text.find('\n')));
    constexpr std::size_t most = 400;
    return {text.substr(0, most), *code};
}

bool IsOnThisMachine(const std::string& url) {
    const std::size_t host = std::max(url.find("://") + 3, url.rfind('@') + 1);
    return url.compare(host, 4, "127.") == 0 || url.compare(host, 9, "localhost") == 0 ||
           url.compare(host, 5, "[::1]") == 0;
}

void StartLibrary() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

struct EasyCleanup {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};

struct ListCleanup {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

int Wait(void* onWait, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    const auto& goesOn = *static_cast<const EngineClient::OnWait*>(onWait);
    return !goesOn || goesOn() ? 0 : 1;
}

using List = std::unique_ptr<curl_slist, ListCleanup>;

List HeadersFor(bool isCompressed) {
    List list(curl_slist_append(nullptr, "Expect:"));  // no round trip before the body
    if (list && isCompressed) {
        curl_slist* const longer = curl_slist_append(list.get(), "Content-Encoding: gzip");
        if (longer == nullptr) {
            throw std::bad_alloc();
        }
        (void)list.release();  // is in the longer one
        list.reset(longer);
    }
    if (!list) {
        throw std::bad_alloc();
    }
    return list;
}

}  // namespace

bool EngineError::IsLasting() const {
    // Names that are not known, statements that are not understood, types that do not fit, and
    // users who may not: what waiting does not change.
    constexpr int lasting[] = {8,   10,  16,  20,  36,  42,  43,  44,  46,  47,
                               48,  50,  57,  60,  62,  63,  80,  81,  115, 164,
                               170, 192, 193, 194, 195, 291, 344, 392, 497, 516};
    return m_code == contradiction || IsAboutRows() ||
           std::find(std::begin(lasting), std::end(lasting), m_code) != std::end(lasting);
}

bool EngineError::IsAboutRows() const {
    // Values that cannot be read, converted or held, and those that a constraint refuses.
    constexpr int aboutRows[] = {6, 27, 38, 41, 53, 69, 70, 72, 117, 128, 131, 321, 376, 469};
    return std::find(std::begin(aboutRows), std::end(aboutRows), m_code) != std::end(aboutRows);
}

struct EngineClient::Handles {
    std::unique_ptr<CURL, EasyCleanup> easy;
    char error[CURL_ERROR_SIZE] = "";
};

struct EngineClient::Answer {
    CURL* easy;
    const OnBytes& onBytes;
    std::string failure;  // what came with another status
    std::exception_ptr thrown;

    static std::size_t Take(char* bytes, std::size_t size, std::size_t count, void* to) {
        auto& answer = *static_cast<Answer*>(to);
        constexpr std::size_t most = 4096;
        long status = 0;
        curl_easy_getinfo(answer.easy, CURLINFO_RESPONSE_CODE, &status);
        if (status != okStatus) {
            answer.failure.append(
                bytes, std::min(size * count, most - std::min(most, answer.failure.size())));
            return size * count;
        }
        try {
            answer.onBytes({bytes, size * count});
        } catch (...) {
            answer.thrown = std::current_exception();
            return 0;  // ends the request
        }
        return size * count;
    }
};

EngineClient::EngineClient(EngineAddress address)
    : m_address(std::move(address)),
      m_isLocal(IsOnThisMachine(m_address.url)),
      m_handles(std::make_unique<Handles>()) {
    StartLibrary();
    m_handles->easy.reset(curl_easy_init());
    CURL* const easy = m_handles->easy.get();
    if (easy == nullptr) {
        throw std::bad_alloc();
    }
    // A server that hangs says nothing; one that works on a long question says nothing either, so
    // that only a connection that has died ends a wait early.
    constexpr long connecting = 10'000;
    constexpr long longest = 600'000;
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_USERAGENT, "tarnview/" TARNVIEW_VERSION);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_TCP_KEEPALIVE, 1L);
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, connecting);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, longest);
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, m_handles->error);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Answer::Take);
    curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, &Wait);
    curl_easy_setopt(easy, CURLOPT_XFERINFODATA, &m_onWait);
    curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
    if (!m_isLocal) {
        curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "gzip");
    }
}

EngineClient::~EngineClient() = default;

std::string EngineClient::QueryOf(const Settings& settings, bool hasDatabase) const {
    std::string query;
    const auto add = [&](const std::string& name, const std::string& value) {
        char* const escaped =
            curl_easy_escape(m_handles->easy.get(), value.c_str(), static_cast<int>(value.size()));
        if (escaped == nullptr) {
            throw std::bad_alloc();
        }
        query += (query.empty() ? "?" : "&") + name + "=" + escaped;
        curl_free(escaped);
    };
    if (hasDatabase) {
        add("database", m_address.database);
    }
    if (!m_isLocal) {
        add("enable_http_compression", "1");
    }
    for (const auto& [name, value] : settings) {
        add(name, value);
    }
    return query;
}

void EngineClient::Ask(const std::string& statement,
                       const Settings& settings,
                       const OnBytes& onBytes) {
    Perform(Kind::Question, QueryOf(settings, true), statement, onBytes);
}

std::string EngineClient::Ask(const std::string& statement, const Settings& settings) {
    std::string answer;
    Ask(statement, settings, [&](std::string_view bytes) { answer += bytes; });
    if (!answer.empty() && answer.back() == '\n') {
        answer.pop_back();
    }
    return answer;
}

std::string EngineClient::AskServer(const std::string& statement) {
    std::string answer;
    Perform(Kind::Question, QueryOf({}, false), statement, [&](std::string_view bytes) {
        answer += bytes;
    });
    return answer;
}

// An insert has a connection of its own. On one that was used before, libcurl sends a request again
// by itself when it breaks off: what has arrived would be there twice. And a server that has
// refused an insert before it has read all of it does not answer the next request.
void EngineClient::Insert(const std::string& statement,
                          std::string_view data,
                          const Settings& settings) {
    Settings all = settings;
    all.emplace_back("query", statement);
    const auto ignore = [](std::string_view) {};
    if (m_isLocal) {
        Perform(Kind::Insert, QueryOf(all, true), data, ignore);
    } else {
        Perform(Kind::CompressedInsert, QueryOf(all, true), tarn::otlp::Compress(data), ignore);
    }
}

void EngineClient::Perform(Kind kind,
                           const std::string& query,
                           std::string_view body,
                           const OnBytes& onBytes) {
    CURL* const easy = m_handles->easy.get();
    const List headers = HeadersFor(kind == Kind::CompressedInsert);
    const std::string url = m_address.url + query;
    Answer answer{easy, onBytes, "", nullptr};
    m_handles->error[0] = '\0';
    const long isInsert = kind == Kind::Question ? 0 : 1;
    curl_easy_setopt(easy, CURLOPT_FRESH_CONNECT, isInsert);
    curl_easy_setopt(easy, CURLOPT_FORBID_REUSE, isInsert);
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &answer);
    const CURLcode code = curl_easy_perform(easy);
    if (answer.thrown) {
        std::rethrow_exception(answer.thrown);
    }
    if (code == CURLE_ABORTED_BY_CALLBACK) {
        throw EngineError("no answer", 0);
    }
    if (code != CURLE_OK) {
        throw EngineError(m_handles->error[0] != '\0' ? m_handles->error : curl_easy_strerror(code),
                          0);
    }
    long status = 0;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    if (status != okStatus) {
        throw ErrorFrom(answer.failure, "status " + std::to_string(status));
    }
}

}  // namespace tarnview
