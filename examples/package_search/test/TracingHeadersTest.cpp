#include "TracingHeaders.h"

#include "ServiceFixture.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace packagesearch {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::string root = "6FEC1044-CACC-4642-A403-F751B5161C7D";
const std::string trace = root + ":" + root + ":0";

httplib::Headers Headers(const std::string& traceValue, const std::string& depth) {
    return {{"corvala-trace-id", traceValue}, {"corvala-extra-depth", depth}};
}

std::vector<httplib::Headers> BadHeaders() {
    return {
        {{"corvala-trace-id", trace}},
        {{"corvala-extra-depth", "1"}},
        {{"corvala-trace-id", trace}, {"corvala-trace-id", trace}, {"corvala-extra-depth", "1"}},
        {{"corvala-trace-id", trace}, {"corvala-extra-depth", "1"}, {"corvala-extra-depth", "2"}},
        Headers("", "1"),
        Headers("nonsense", "1"),
        Headers(root, "1"),
        Headers(trace + "0", "1"),
        Headers(root + ":" + root.substr(1) + "A:0", "1"),
        Headers("6fec1044-cacc-4642-a403-f751b5161c7d:6fec1044-cacc-4642-a403-f751b5161c7d:0", "1"),
        Headers(std::string(7000, 'A'), "1"),
        Headers("\"}, \xFF", "1"),
        Headers(trace, ""),
        Headers(trace, "-1"),
        Headers(trace, "1000"),
        Headers(trace, "99999999999999999999"),
        Headers(trace, "1 "),
        Headers(trace, "0x1"),
    };
}

TEST(TracingHeadersTest, WhatTheTracerWritesBecomesAContextOneDeeper) {
    const ReceivedContext received = ReadTracingHeaders(Headers(trace, "4"));

    EXPECT_THAT(received.problem, IsEmpty());
    const TString id(root);
    EXPECT_EQ(received.attributes.at(u"__root__"), id);
    EXPECT_EQ(received.attributes.at(u"sponsorId"), id);
    EXPECT_EQ(received.attributes.at(u"depth"), TString(u"5"));
    EXPECT_EQ(received.attributes.at(u"sDepth"), TString(u"1"));
    EXPECT_EQ(received.attributes.at(u"rid"), TString(u"-"));
}

TEST(TracingHeadersTest, WithoutHeadersThereIsNothingToTakeOverAndNoProblem) {
    const ReceivedContext received = ReadTracingHeaders({{"Host", "x"}});

    EXPECT_THAT(received.attributes, IsEmpty());
    EXPECT_THAT(received.problem, IsEmpty());
}

TEST(TracingHeadersTest, WhatTheTracerWouldNotWriteIsAProblemAndNotTakenOver) {
    for (const httplib::Headers& headers : BadHeaders()) {
        const ReceivedContext received = ReadTracingHeaders(headers);

        EXPECT_THAT(received.attributes, IsEmpty()) << headers.begin()->second;
        EXPECT_THAT(received.problem, Not(IsEmpty())) << headers.begin()->second;
    }
}

class AdoptionTest : public ServiceTest {};

TEST_F(AdoptionTest, ARequestWithGoodHeadersBelongsToTheCallersTree) {
    const Instance& instance = Start();

    const httplib::Result result = Ask(instance, "/health", Headers(trace, "6"));

    EXPECT_EQ(Verdict(result), "200");
    EXPECT_EQ(result->get_header_value("X-Trace-Id"), root);
    const LoggedTrees log = EndAndRead();
    // The caller's own activity would be in its own log.
    EXPECT_EQ(WhatIsWrongWith(m_log, {tarnview::ProblemKind::Orphan}), "");
    ASSERT_EQ(Requests(log).size(), 1U);
    EXPECT_EQ(Requests(log)[0]->root, root);
    EXPECT_EQ(Requests(log)[0]->depth, 7);
    EXPECT_NE(Requests(log)[0]->id, root);
    EXPECT_THAT(Requests(log)[0]->body, Not(HasSubstr("ignored-headers")));
}

TEST_F(AdoptionTest, ARequestWithBadHeadersIsAnsweredAsATreeOfItsOwnAndSaysSoOnce) {
    const Instance& instance = Start();
    std::size_t sent = 0;

    for (const httplib::Headers& headers : BadHeaders()) {
        // Blanks around a header's value do not arrive.
        const std::string& text = headers.begin()->second;
        if (text.empty() || text.back() != ' ') {
            EXPECT_EQ(Verdict(Ask(instance, "/health", headers)), "200") << text;
            ++sent;
        }
    }

    const LoggedTrees log = EndAndRead();
    ExpectWholeLog(log);
    ASSERT_EQ(Requests(log).size(), sent);
    for (const LoggedActivity* request : Requests(log)) {
        EXPECT_EQ(request->result, "ok");
        EXPECT_EQ(request->depth, 0);
        EXPECT_NE(request->root, root);
        const std::string& attributes = request->body;
        const std::size_t first = attributes.find("ignored-headers=");
        EXPECT_NE(first, std::string::npos) << attributes;
        EXPECT_EQ(attributes.find("ignored-headers=", first + 1), std::string::npos);
    }
}

}  // namespace
}  // namespace packagesearch
