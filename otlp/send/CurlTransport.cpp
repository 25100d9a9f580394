#include "send/CurlTransport.h"

#include <algorithm>
#include <curl/curl.h>
#include <mutex>
#include <new>

namespace tarn::otlp {

namespace {

// More of an answer is of no use.
constexpr std::size_t mostOfAnswer = std::size_t{1} << 20;

struct EasyCleanup {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};

struct MultiCleanup {
    void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};

struct ListCleanup {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

using List = std::unique_ptr<curl_slist, ListCleanup>;

void Append(List& list, const std::string& text) {
    curl_slist* const longer = curl_slist_append(list.get(), text.c_str());
    if (longer == nullptr) {
        throw std::bad_alloc();
    }
    (void)list.release();  // is in the longer one
    list.reset(longer);
}

std::size_t TakeBody(char* bytes, std::size_t size, std::size_t count, void* to) {
    auto& body = *static_cast<std::string*>(to);
    const std::size_t length = size * count;
    body.append(bytes, std::min(length, mostOfAnswer - std::min(mostOfAnswer, body.size())));
    return length;
}

bool IsHopeless(CURLcode code) {
    switch (code) {
        case CURLE_UNSUPPORTED_PROTOCOL:
        case CURLE_URL_MALFORMAT:
        case CURLE_PEER_FAILED_VERIFICATION:  // it is not the receiver that it should be
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_ENGINE_NOTFOUND:
        case CURLE_NOT_BUILT_IN:
            return true;
        default:
            return false;
    }
}

void StartLibrary() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

}  // namespace

struct CurlTransport::Handles {
    std::unique_ptr<CURLM, MultiCleanup> multi;
    std::unique_ptr<CURL, EasyCleanup> easy;
    List headers;
    CURLcode code = CURLE_OK;
    bool isStopped = false;
    char error[CURL_ERROR_SIZE] = "";
};

CurlTransport::CurlTransport(const Options& options, std::string_view contentType, StopSignal& stop)
    : m_options(options),
      m_stop(stop),
      m_handles(std::make_unique<Handles>()) {
    StartLibrary();
    m_handles->multi.reset(curl_multi_init());
    m_handles->easy.reset(curl_easy_init());
    CURL* const easy = m_handles->easy.get();
    if (!m_handles->multi || easy == nullptr) {
        throw std::bad_alloc();
    }
    Append(m_handles->headers, "Content-Type: " + std::string(contentType));
    if (m_options.gzip) {
        Append(m_handles->headers, "Content-Encoding: gzip");
    }
    Append(m_handles->headers, "Expect:");  // no round trip before the body
    for (const auto& [name, value] : m_options.headers) {
        // A name with nothing behind it would take the header away.
        Append(m_handles->headers, value.empty() ? name + ";" : name + ": " + value);
    }
    curl_easy_setopt(easy, CURLOPT_URL, m_options.url.c_str());
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_USERAGENT, "tarn-otlp/" TARN_VERSION);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, m_handles->headers.get());
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, m_handles->error);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &TakeBody);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, static_cast<long>(m_options.timeout.count()));
    const auto setFile = [easy](CURLoption option, const std::string& file) {
        if (!file.empty()) {
            curl_easy_setopt(easy, option, file.c_str());
        }
    };
    setFile(CURLOPT_CAINFO, m_options.certificateFile);
    setFile(CURLOPT_SSLCERT, m_options.clientCertificateFile);
    setFile(CURLOPT_SSLKEY, m_options.clientKeyFile);
}

CurlTransport::~CurlTransport() = default;

Answer CurlTransport::Post(std::string_view body) {
    CURL* const easy = m_handles->easy.get();
    Answer answer;
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &answer.body);
    const std::string error = Perform();
    if (m_handles->isStopped) {
        answer.kind = Answer::Kind::Stopped;
        return answer;
    }
    if (!error.empty()) {
        answer.kind = IsHopeless(m_handles->code) ? Answer::Kind::Hopeless : Answer::Kind::Failed;
        answer.error = error;
        return answer;
    }
    answer.kind = Answer::Kind::Answered;
    long status = 0;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    answer.status = static_cast<int>(status);
    const char* type = nullptr;
    if (curl_easy_getinfo(easy, CURLINFO_CONTENT_TYPE, &type) == CURLE_OK && type != nullptr) {
        answer.contentType = type;
    }
    curl_header* header = nullptr;
    if (curl_easy_header(easy, "Retry-After", 0, CURLH_HEADER, -1, &header) == CURLHE_OK) {
        answer.retryAfter = header->value;
    }
    return answer;
}

// Returns what went wrong; empty if there is an answer.
std::string CurlTransport::Perform() {
    constexpr int longestWait = 50;  // milliseconds, to look whether it is to stop
    CURLM* const multi = m_handles->multi.get();
    m_handles->error[0] = '\0';
    m_handles->code = CURLE_OK;
    m_handles->isStopped = false;
    if (curl_multi_add_handle(multi, m_handles->easy.get()) != CURLM_OK) {
        return "libcurl takes no request";
    }
    std::string error;
    int running = 1;
    while (running != 0 && error.empty()) {
        if (m_stop.HasStopped()) {
            m_handles->isStopped = true;
            break;
        }
        CURLMcode code = curl_multi_perform(multi, &running);
        if (code == CURLM_OK && running != 0) {
            code = curl_multi_poll(multi, nullptr, 0, longestWait, nullptr);
        }
        error = code == CURLM_OK ? "" : curl_multi_strerror(code);
    }
    int left = 0;
    while (const CURLMsg* const message = curl_multi_info_read(multi, &left)) {
        if (message->msg == CURLMSG_DONE && message->data.result != CURLE_OK) {
            m_handles->code = message->data.result;
            error = m_handles->error[0] != '\0' ? m_handles->error
                                                : curl_easy_strerror(m_handles->code);
        }
    }
    curl_multi_remove_handle(multi, m_handles->easy.get());
    return error;
}

}  // namespace tarn::otlp
