#include "send/BatchSender.h"

#include "send/Gzip.h"

#include <algorithm>
#include <random>

namespace tarn::otlp {

namespace {

std::uint64_t CountSpans(const std::vector<ResourceSpans>& batch) {
    std::uint64_t count = 0;
    for (const ResourceSpans& part : batch) {
        count += part.spans.size();
    }
    return count;
}

// Which kind of answer a receiver may give to a request of this kind.
bool IsOfType(const std::string& contentType, std::string_view expected) {
    const std::string_view type = std::string_view(contentType).substr(0, expected.size());
    const auto isSame = [](char a, char b) { return (a | 0x20) == (b | 0x20); };
    return std::equal(type.begin(), type.end(), expected.begin(), expected.end(), isSame);
}

// What a receiver says goes to a terminal or a log, so it is kept short.
std::string Shortened(std::string text) {
    constexpr std::size_t most = 300;
    if (text.size() > most) {
        text.resize(most);
        text += "...";
    }
    std::replace_if(
        text.begin(), text.end(), [](unsigned char it) { return it < ' ' || it == 0x7f; }, ' ');
    return text;
}

std::string Describe(const Answer& answer) {
    if (answer.kind != Answer::Kind::Answered) {
        return answer.error;
    }
    const std::string message = Shortened(ReadErrorMessage(answer.contentType, answer.body));
    return "status " + std::to_string(answer.status) + (message.empty() ? "" : ": " + message);
}

}  // namespace

BatchSender::BatchSender(const Options& options,
                         const SpanEncoder& encoder,
                         Transport& transport,
                         StopSignal& stop)
    : m_options(options),
      m_encoder(encoder),
      m_transport(transport),
      m_stop(stop),
      m_policy(options, std::random_device()()) {}

BatchResult BatchSender::Send(const std::vector<ResourceSpans>& batch) {
    const std::uint64_t spans = CountSpans(batch);
    std::string body = m_encoder.Assemble(batch);
    if (m_options.gzip) {
        body = Compress(body);
    }
    const StopSignal::Time begin = StopSignal::Clock::now();
    std::uint64_t requests = 0;
    while (m_stop.WaitUntil(m_notBefore)) {
        const Answer answer = m_transport.Post(body);
        ++requests;
        BatchResult result = Judge(answer, spans);
        result.requests = requests;
        result.retries = requests - 1;
        if (result.kind != BatchResult::Kind::GivenUp) {
            return result;
        }
        m_notBefore = NextTry(answer);
        if (m_options.retryFor.count() != 0 && m_notBefore > begin + m_options.retryFor) {
            return result;
        }
    }
    return {.kind = BatchResult::Kind::Stopped,
            .problem = "the end came first",
            .requests = requests,
            .retries = requests != 0 ? requests - 1 : 0};
}

// What may be tried again is given up for now.
BatchResult BatchSender::Judge(const Answer& answer, std::uint64_t spans) {
    const bool isAnswered = answer.kind == Answer::Kind::Answered;
    if (answer.kind == Answer::Kind::Stopped) {
        return {.kind = BatchResult::Kind::Stopped, .problem = "the end came first"};
    }
    if (answer.kind == Answer::Kind::Failed || (isAnswered && IsRetryable(answer.status))) {
        return {.kind = BatchResult::Kind::GivenUp, .problem = Describe(answer)};
    }
    constexpr int contentTooLarge = 413;
    if (isAnswered && answer.status == contentTooLarge) {
        return {.kind = BatchResult::Kind::TooLarge, .problem = Describe(answer)};
    }
    if (!isAnswered || answer.status < 200 || answer.status >= 300) {
        return {.kind = BatchResult::Kind::Refused, .problem = Describe(answer)};
    }
    m_policy.Reset();
    return ReadSuccess(answer, spans);
}

// The receiver has taken the request; an answer that cannot be read does not change that.
BatchResult BatchSender::ReadSuccess(const Answer& answer, std::uint64_t spans) const {
    BatchResult result;
    if (!answer.body.empty() && !IsOfType(answer.contentType, m_encoder.ContentType())) {
        result.problem = "the answer is of the type \"" + Shortened(answer.contentType) +
                         "\"; is it a receiver of OTLP that answers?";
        return result;
    }
    const PartialSuccess partial = m_encoder.ReadAnswer(answer.body);
    if (!answer.body.empty() && !partial.isUnderstood) {
        result.problem = "the answer cannot be read";
        return result;
    }
    result.rejected = std::min(
        spans, static_cast<std::uint64_t>(std::max<std::int64_t>(partial.rejectedSpans, 0)));
    result.problem = Shortened(partial.message);
    if (result.rejected != 0 && result.problem.empty()) {
        result.problem = "the receiver does not say why";
    }
    return result;
}

StopSignal::Time BatchSender::NextTry(const Answer& answer) {
    // A receiver that wishes for more than a day means something else.
    constexpr std::chrono::milliseconds longest = std::chrono::hours(24);
    const std::chrono::milliseconds wait = m_policy.NextWait();
    const std::chrono::milliseconds wish =
        answer.retryAfter.empty() ? wait : ParseRetryAfter(answer.retryAfter).value_or(wait);
    return StopSignal::Clock::now() + std::clamp(wish, std::chrono::milliseconds(0), longest);
}

}  // namespace tarn::otlp
