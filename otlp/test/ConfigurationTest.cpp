#include "config/Environment.h"
#include "config/KeyValueList.h"

#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarn::otlp {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;
using namespace std::chrono_literals;

class ConfigurationTest : public testing::Test {
protected:
    Options Read(const std::map<std::string, std::string>& environment) {
        return ReadEnvironment(
            {},
            [&](const char* name) {
                const auto found = environment.find(name);
                return found == environment.end() ? nullptr : found->second.c_str();
            },
            m_problems);
    }

    std::vector<std::string> m_problems;
};

TEST_F(ConfigurationTest, WithoutAnEnvironmentTheDefaultsHold) {
    const Options options = Read({{"OTEL_EXPORTER_OTLP_ENDPOINT", ""}});

    EXPECT_EQ(options.url, "http://localhost:4318/v1/traces");
    EXPECT_EQ(options.encoding, Encoding::Protobuf);
    EXPECT_EQ(options.timeout, 10s);
    EXPECT_TRUE(options.isEnabled);
    EXPECT_THAT(m_problems, IsEmpty());
}

TEST_F(ConfigurationTest, TheGeneralEndpointGetsThePathAndThatOfTracesIsTakenAsItIs) {
    EXPECT_EQ(Read({{"OTEL_EXPORTER_OTLP_ENDPOINT", "http://a:1/"}}).url, "http://a:1/v1/traces");
    EXPECT_EQ(Read({{"OTEL_EXPORTER_OTLP_ENDPOINT", "http://a:1/in"}}).url,
              "http://a:1/in/v1/traces");
    EXPECT_EQ(Read({{"OTEL_EXPORTER_OTLP_ENDPOINT", "http://a:1"},
                    {"OTEL_EXPORTER_OTLP_TRACES_ENDPOINT", "https://b/x"}})
                  .url,
              "https://b/x");
}

TEST_F(ConfigurationTest, WhatIsSetForTracesGoesBeforeWhatIsSetForAll) {
    const Options options = Read({{"OTEL_EXPORTER_OTLP_PROTOCOL", "http/protobuf"},
                                  {"OTEL_EXPORTER_OTLP_TRACES_PROTOCOL", "http/json"},
                                  {"OTEL_EXPORTER_OTLP_TIMEOUT", "1000"},
                                  {"OTEL_EXPORTER_OTLP_TRACES_TIMEOUT", "250"},
                                  {"OTEL_EXPORTER_OTLP_COMPRESSION", "gzip"},
                                  {"OTEL_EXPORTER_OTLP_CERTIFICATE", "ca.pem"},
                                  {"OTEL_EXPORTER_OTLP_TRACES_CLIENT_CERTIFICATE", "me.pem"},
                                  {"OTEL_EXPORTER_OTLP_CLIENT_KEY", "me.key"}});

    EXPECT_EQ(options.encoding, Encoding::Json);
    EXPECT_EQ(options.timeout, 250ms);
    EXPECT_TRUE(options.gzip);
    EXPECT_EQ(options.certificateFile, "ca.pem");
    EXPECT_EQ(options.clientCertificateFile, "me.pem");
    EXPECT_EQ(options.clientKeyFile, "me.key");
    EXPECT_THAT(m_problems, IsEmpty());
}

TEST_F(ConfigurationTest, HeadersAndResourceAttributesAreListsOfPairs) {
    const Options options = Read({{"OTEL_EXPORTER_OTLP_HEADERS", "api-key=a%2Cb , x = y=z"},
                                  {"OTEL_RESOURCE_ATTRIBUTES", "service.name=listed,host.name=box"},
                                  {"OTEL_SERVICE_NAME", "named"}});

    EXPECT_THAT(options.headers, ElementsAre(Pair("api-key", "a,b"), Pair("x", "y=z")));
    EXPECT_THAT(options.resourceAttributes,
                ElementsAre(Pair("service.name", "listed"), Pair("host.name", "box")));
    EXPECT_EQ(options.serviceName, "named");
}

TEST_F(ConfigurationTest, TheSettingsOfBatchesAndTheSwitchAreRead) {
    const Options options = Read({{"OTEL_BSP_SCHEDULE_DELAY", "0"},
                                  {"OTEL_BSP_MAX_EXPORT_BATCH_SIZE", "100"},
                                  {"OTEL_BSP_MAX_QUEUE_SIZE", "1000"},
                                  {"OTEL_BSP_EXPORT_TIMEOUT", "30000"},
                                  {"OTEL_SDK_DISABLED", "true"}});

    EXPECT_EQ(options.batchDelay, 0ms);
    EXPECT_EQ(options.batchSpans, 100U);
    EXPECT_EQ(options.queueSpans, 1000U);
    EXPECT_EQ(options.retryFor, 30s);
    EXPECT_FALSE(options.isEnabled);
}

TEST_F(ConfigurationTest, WhatCannotBeUnderstoodIsNamedAndPassedOver) {
    const Options options = Read({{"OTEL_EXPORTER_OTLP_ENDPOINT", "localhost:4317"},
                                  {"OTEL_EXPORTER_OTLP_PROTOCOL", "grpc"},
                                  {"OTEL_EXPORTER_OTLP_TIMEOUT", "10s"},
                                  {"OTEL_EXPORTER_OTLP_COMPRESSION", "zstd"},
                                  {"OTEL_EXPORTER_OTLP_HEADERS", "secret"},
                                  {"OTEL_RESOURCE_ATTRIBUTES", "a=b,c"},
                                  {"OTEL_BSP_MAX_QUEUE_SIZE", "0"}});

    EXPECT_EQ(options.url, Options().url);
    EXPECT_EQ(options.timeout, Options().timeout);
    EXPECT_EQ(options.queueSpans, Options().queueSpans);
    EXPECT_THAT(options.resourceAttributes, IsEmpty());
    ASSERT_EQ(m_problems.size(), 7U);
    EXPECT_THAT(m_problems[1], HasSubstr("OTEL_EXPORTER_OTLP_PROTOCOL, \"grpc\""));
    EXPECT_THAT(m_problems[3], HasSubstr("HEADERS"));
    EXPECT_THAT(m_problems[3], Not(HasSubstr("secret\"")));
}

TEST(KeyValueListTest, BrokenListsAreRefusedAsAWhole) {
    EXPECT_EQ(ParseKeyValueList("a=1,b"), std::nullopt);
    EXPECT_EQ(ParseKeyValueList("=1"), std::nullopt);
    EXPECT_EQ(ParseKeyValueList("a=%2"), std::nullopt);
    EXPECT_EQ(ParseKeyValueList("a=%zz"), std::nullopt);
    EXPECT_THAT(*ParseKeyValueList(""), IsEmpty());
    EXPECT_THAT(*ParseKeyValueList(" a = 1 ,, b= "), ElementsAre(Pair("a", "1"), Pair("b", "")));
}

}  // namespace
}  // namespace tarn::otlp
