#include "ServiceFixture.h"

#include "tarn/ActivityTracer.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace packagesearch {
namespace {

const std::string root = "6FEC1044-CACC-4642-A403-F751B5161C7D";
const std::string trace = root + ":" + root + ":0";

httplib::Headers Headers(const std::string& traceValue, const std::string& depth) {
    return {{"corvala-trace-id", traceValue}, {"corvala-extra-depth", depth}};
}

class ReceivedHeadersTest : public ServiceTest {};

TEST_F(ReceivedHeadersTest, ARequestWithGoodHeadersBelongsToTheCallersTree) {
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
}

TEST_F(ReceivedHeadersTest, ARequestWithBadHeadersIsAnsweredAsATreeOfItsOwnAndCounted) {
    const std::vector<httplib::Headers> bad{
        {{"corvala-trace-id", trace}},
        {{"corvala-trace-id", trace}, {"corvala-trace-id", trace}, {"corvala-extra-depth", "1"}},
        Headers("nonsense", "1"),
        Headers(std::string(7000, 'A'), "1"),
        Headers("\"}, \xFF", "1"),
        Headers(trace, "-1"),
    };
    const Instance& instance = Start();
    const auto before = tarn::ActivityTracer::GetRefusedHeaders();

    for (const httplib::Headers& headers : bad) {
        EXPECT_EQ(Verdict(Ask(instance, "/health", headers)), "200") << headers.begin()->second;
    }

    EXPECT_EQ(tarn::ActivityTracer::GetRefusedHeaders() - before, bad.size());
    const LoggedTrees log = EndAndRead();
    ExpectWholeLog(log);
    ASSERT_EQ(Requests(log).size(), bad.size());
    for (const LoggedActivity* request : Requests(log)) {
        EXPECT_EQ(request->result, "ok");
        EXPECT_EQ(request->depth, 0);
        EXPECT_NE(request->root, root);
    }
}

}  // namespace
}  // namespace packagesearch
