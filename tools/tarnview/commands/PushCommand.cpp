#include "commands/PushCommand.h"

#include "commands/PushCheckpoint.h"
#include "encode/LineEncoder.h"
#include "output/Progress.h"
#include "read/InputFiles.h"
#include "read/LineReader.h"
#include "read/Problems.h"
#include "send/BatchSender.h"
#include "send/CurlTransport.h"
#include "send/Parts.h"

#include <chrono>
#include <memory>
#include <ostream>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace tarnview {

namespace {

using tarn::otlp::BatchResult;
using tarn::otlp::EncodedSpan;
using tarn::otlp::LineEncoder;

class Pusher {
public:
    Pusher(const PushOptions& options, Context& context)
        : m_options(options),
          m_context(context),
          m_files(FilesToRead(options.input.files, options.input.addsRotated)),
          m_problems(context.err),
          m_progress(context.err, context.terminal.hasProgress, TotalSize(m_files)),
          m_lines(options.otlp, true),
          m_encoder(tarn::otlp::MakeEncoder(options.otlp.encoding)),
          m_transport(options.otlp, m_encoder->ContentType(), m_stop),
          m_sender(options.otlp, *m_encoder, m_transport, m_stop) {
        m_problems.SetBeforeOutput([this] { m_progress.Clear(); });
    }

    int Run() {
        LearnHosts();
        if (!m_options.checkpoint.empty()) {
            m_checkpoint.Load(m_options.checkpoint);
            Reopen();
        }
        bool isGood = true;
        for (const std::string& file : m_files) {
            isGood = isGood && PushFile(file);
        }
        isGood = isGood && SendBatch();
        if (isGood) {
            m_checkpoint.KeepOnly(m_ids);
            SaveCheckpoint();
        }
        m_progress.Clear();
        Summarize();
        return !isGood ? exitInputOutput : m_rejected != 0 ? exitNegative : exitSuccess;
    }

private:
    // The name of the host is in the end events of roots only, and the spans before these have it
    // as well. What can be read once only has its host from there on.
    void LearnHosts() {
        tarn::otlp::LineParser parser;
        tarn::otlp::LineFacts facts;
        for (const std::string& file : m_files) {
            const InputFile input(file);
            if (lseek(input.Descriptor(), 0, SEEK_CUR) < 0) {
                continue;
            }
            LineReader reader(input.Descriptor());
            for (auto it = reader.Next(); it != LineReader::Result::End; it = reader.Next()) {
                // Most lines have an empty table there.
                const bool maySay =
                    it == LineReader::Result::Line &&
                    reader.Text().find(R"("environment":{")") != std::string_view::npos;
                if (maySay && parser.Parse(reader.Text(), facts) && !facts.host.empty()) {
                    m_lines.SetHost(facts.process, facts.host);
                    if (!m_hasHost) {
                        m_lines.SetHost(0, facts.host);
                        m_hasHost = true;
                    }
                }
            }
        }
    }

    // What had begun and not ended at the checkpoint.
    void Reopen() {
        EncodedSpan span;
        for (std::string& line : m_checkpoint.openLines) {
            line.reserve(line.size() + simdjson::SIMDJSON_PADDING);
            m_lines.Take(line, span);
        }
    }

    bool PushFile(const std::string& path) {
        const InputFile input(path);
        m_id = PushCheckpoint::IdOf(input.Descriptor());
        m_ids.push_back(m_id);
        std::uint64_t first = m_checkpoint.OffsetOf(m_id);
        if (first != 0 && lseek(input.Descriptor(), 0, SEEK_END) < static_cast<off_t>(first)) {
            first = 0;  // truncated and written anew
        }
        if (first != 0 || m_id != PushCheckpoint::FileId()) {
            lseek(input.Descriptor(), static_cast<off_t>(first), SEEK_SET);
        }
        LineReader reader(input.Descriptor());
        Place place{path, 0};
        for (auto it = reader.Next(); it != LineReader::Result::End; it = reader.Next()) {
            place.line = first == 0 ? reader.Number() : 0;
            if (it == LineReader::Result::LongLine) {
                m_problems.Report(ProblemKind::LongLine, place, "passed over");
                continue;
            }
            Take(reader.Text(), place);
            m_checkpoint.SetOffset(m_id, first + reader.Offset());
            const bool isFull = m_batch.size() >= m_options.otlp.batchSpans ||
                                m_batchBytes >= m_options.otlp.batchBytes;
            if (isFull && !SendBatch()) {
                return false;
            }
        }
        m_bytesBefore += reader.BytesRead();
        m_progress.Update(m_bytesBefore);
        return true;
    }

    void Take(std::string_view line, const Place& place) {
        EncodedSpan span;
        switch (m_lines.Take(line, span)) {
            case LineEncoder::Result::Nothing:
                break;
            case LineEncoder::Result::BeginLeftOut:
                ++m_beginsLeftOut;
                break;
            case LineEncoder::Result::Unreadable:
                m_problems.Report(ProblemKind::UnreadableLine, place, "no span can be made of it");
                break;
            case LineEncoder::Result::Span:
                m_batchBytes += span.text.size();
                m_batch.push_back(std::move(span));
                break;
        }
    }

    // Everything up to the last line, of which the checkpoint knows.
    bool SendBatch() {
        if (m_batch.empty()) {
            return true;
        }
        bool isTaken = true;
        tarn::otlp::SendInParts(
            m_sender, m_batch, [&](const BatchResult& result, std::uint64_t spans) {
                isTaken = TakeResult(result, spans);
                return isTaken;
            });
        if (!isTaken) {
            return false;
        }
        m_batch.clear();
        m_batchBytes = 0;
        constexpr std::chrono::milliseconds pause{500};
        if (std::chrono::steady_clock::now() > m_lastSave + pause) {
            SaveCheckpoint();
        }
        return true;
    }

    // Whether the receiver has the spans, or will never have them.
    bool TakeResult(const BatchResult& result, std::uint64_t spans) {
        // A receiver that says something odd mostly says it each time.
        if (!result.problem.empty() && result.problem != m_lastProblem) {
            m_lastProblem = result.problem;
            m_progress.Clear();
            m_context.err << "tarnview: " << m_options.otlp.url << ": " << result.problem << '\n';
        }
        switch (result.kind) {
            case BatchResult::Kind::Sent:
                m_sent += spans - result.rejected;
                m_rejected += result.rejected;
                return true;
            case BatchResult::Kind::TooLarge:  // by itself
                m_rejected += spans;
                return true;
            default:
                return false;
        }
    }

    void SaveCheckpoint() {
        if (m_options.checkpoint.empty()) {
            return;
        }
        m_checkpoint.openLines.clear();
        for (const tarn::otlp::OpenActivity* const open : m_lines.Open().List()) {
            m_checkpoint.openLines.push_back(open->line);
        }
        m_checkpoint.Save(m_options.checkpoint);
        m_lastSave = std::chrono::steady_clock::now();
    }

    void Summarize() {
        m_context.out << "sent " << m_sent << ", rejected " << m_rejected << ", not ended "
                      << m_lines.Open().Size() << '\n';
        if (m_beginsLeftOut != 0) {
            m_context.err << "tarnview: too much was open at once; begins that were left out: "
                          << m_beginsLeftOut << '\n';
        }
        if (const std::string summary = m_problems.Summary(); !summary.empty()) {
            m_context.err << "tarnview: " << summary << '\n';
        }
    }

    const PushOptions& m_options;
    Context& m_context;
    const std::vector<std::string> m_files;
    Problems m_problems;
    Progress m_progress;
    LineEncoder m_lines;
    tarn::otlp::StopSignal m_stop;
    const std::unique_ptr<tarn::otlp::SpanEncoder> m_encoder;
    tarn::otlp::CurlTransport m_transport;
    tarn::otlp::BatchSender m_sender;
    PushCheckpoint m_checkpoint;
    PushCheckpoint::FileId m_id;
    std::vector<PushCheckpoint::FileId> m_ids;
    std::vector<EncodedSpan> m_batch;
    std::size_t m_batchBytes = 0;
    std::string m_lastProblem;
    std::uint64_t m_bytesBefore = 0;
    std::uint64_t m_sent = 0;
    std::uint64_t m_rejected = 0;
    std::uint64_t m_beginsLeftOut = 0;
    bool m_hasHost = false;
    std::chrono::steady_clock::time_point m_lastSave{};
};

}  // namespace

int RunPush(const PushOptions& options, Context& context) {
    return Pusher(options, context).Run();
}

}  // namespace tarnview
