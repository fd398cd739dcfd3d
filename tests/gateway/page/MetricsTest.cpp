// A status as Prometheus reads it.
#include "tools/gateway/page/Metrics.h"

#include <gtest/gtest.h>

#include "gateway/page/Statuses.h"

namespace kestrin::gateway::test {
namespace {

bool has(const std::string& text, const std::string& line) {
  return ("\n" + text).find("\n" + line + "\n") != std::string::npos;
}

TEST(Metrics, SayHowEachPartOfTheGatewayIs) {
  const std::string text = metricsOf(someStatus(), 2);
  for (const char* line :
       {"# TYPE kestrin_gateway_broker_up gauge", "kestrin_gateway_broker_up 1",
        "kestrin_gateway_broker_in_flight_messages 7", "kestrin_gateway_log_bytes 4096",
        "kestrin_gateway_log_budget_bytes 1048576", "kestrin_gateway_log_waiting_records 61",
        "kestrin_gateway_start_time_seconds 1799996400.250",
        "kestrin_gateway_reader_plugged_in{reader=\"KVR-0001\"} 1",
        "kestrin_gateway_reader_frames_total{reader=\"KVR-0001\"} 61",
        "kestrin_gateway_reader_signal_dbm{reader=\"KVR-0001\"} -61",
        "kestrin_gateway_consumer_committed_number{consumer=\"store\"} 39",
        "kestrin_gateway_consumer_behind_records{consumer=\"store\"} 61",
        "kestrin_gateway_gaps_total 1", "kestrin_gateway_troubles 1",
        "kestrin_gateway_page_viewers 2"}) {
    EXPECT_TRUE(has(text, line)) << line << "\nis not in\n" << text;
  }
}

TEST(Metrics, SayThatAReaderIsNotPluggedIn) {
  Status status = someStatus();
  status.readers[0].phase = "searching";
  status.readers[0].signal.reset();
  const std::string text = metricsOf(status, 0);
  EXPECT_TRUE(has(text, "kestrin_gateway_reader_plugged_in{reader=\"KVR-0001\"} 0"));
  EXPECT_EQ(text.find("reader_signal_dbm{"), std::string::npos);
}

TEST(Metrics, KeepEachLabelInItsQuotes) {
  Status status = someStatus();
  status.readers[0].key = "a\"b\\c\nd\xFF";
  EXPECT_TRUE(has(metricsOf(status, 0),
                  "kestrin_gateway_reader_plugged_in{reader=\"a\\\"b\\\\c\\nd\xEF\xBF\xBD\"} 1"));
}

TEST(Metrics, CountNothingBelowZero) {
  Status status = someStatus();
  status.last = 0;
  EXPECT_TRUE(has(metricsOf(status, 0), "kestrin_gateway_log_waiting_records 0"));
}

}  // namespace
}  // namespace kestrin::gateway::test
