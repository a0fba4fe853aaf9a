#include <atomic>
#include <thread>

#include <gmock/gmock.h>

#include <ara_log_host/sink.h>

#include "client/ecu_capabilities_if.h"
#include "diagnosticinfo_host/diagnostic_info_server.h"
#include "platform/support/someip/test_service.h"
#include "testing/captured_log.h"
#include "testing/environment.h"
#include "testing/temporary_directory.h"
#include "vehicle/diagnostic_info_services.h"
#include "vehicle/ecu_capabilities_diag_info_impl.h"

namespace {

using orv::services::diagnosticinfo::datatypes::DT_identificationData_struct;
using orv::tee::DiagnosticInfoServices;
using testing_support::Gate;

std::vector<std::uint8_t> Bytes(const std::string& text) {
    return {text.begin(), text.end()};
}

DT_identificationData_struct Record(const std::string& sw, const std::string& hw,
                                    const std::string& part) {
    DT_identificationData_struct record;
    record.swVersion = Bytes(sw);
    record.hwVersion = Bytes(hw);
    record.partNumber = Bytes(part);
    return record;
}

DT_identificationData_struct Address(std::uint16_t address) {
    DT_identificationData_struct record;
    record.diagnosticAddress = address;
    return record;
}

class EcuCapabilitiesTest : public testing::Test {
protected:
    EcuCapabilitiesTest() {
        mDirectory.Write(
            "Deployment.json",
            someip::FormatDeployment(test_service::ClientDeployment(mServer.Deployment())));
    }

    /// Publishes and waits until the line that reports the last value is there.
    void PublishAndAwait(const diagnosticinfo_host::IdentificationData& records,
                         const std::string& line) {
        mLog.Clear();
        mServer.Publish(records);
        ASSERT_TRUE(mLog.WaitFor(line)) << line;
    }

    /// Starts `services` and waits until it is subscribed.
    void StartAndSubscribe(DiagnosticInfoServices& services) {
        mServer.Offer();
        services.Start();
        ASSERT_TRUE(mLog.WaitFor("DiagnosticInfoServices::Subscribed to events"));
    }

    testing_support::TemporaryDirectory mDirectory;
    const testing_support::EnvironmentVariable mVariable{"SOMEIP_DEPLOYMENT",
                                                         mDirectory.File("Deployment.json")};
    testing_support::CapturedLog mLog;
    diagnosticinfo_host::DiagnosticInfoServer mServer;
};

TEST_F(EcuCapabilitiesTest, ValuesOfTheServiceArriveAndLaterOnesReplaceThem) {
    const auto capabilities = vintrel::EcuCapabilitiesIf::Create();
    EXPECT_TRUE(capabilities->GetEcuCapabilities().softwareVersion.empty());
    mServer.Publish({Record("0209", "H01", "VN035000A01")});
    mServer.Offer();
    capabilities->Initialize();
    ASSERT_TRUE(mLog.WaitFor("Received partNumber: 'VN035000A01' stored"));
    const auto values = capabilities->GetEcuCapabilities();
    EXPECT_EQ(values.softwareVersion, "0209");
    EXPECT_EQ(values.hardwareVersion, "H01");
    EXPECT_EQ(values.partNumber, "VN035000A01");

    auto lines = mLog.Lines('I');
    lines.resize(3);
    EXPECT_THAT(lines, testing::ElementsAre("DiagnosticInfoServices::Start",
                                            "DiagnosticInfoService service found",
                                            "Subscribing to DiagnosticInfo"));
    for (const char* line :
         {"DiagnosticInfoServices::Subscribed to events",
          "DiagnosticInfoProxy::HandleDiagnosticEvent updated: 1", "DiagnosticInfoProxy::GetData",
          "DiagnosticInfoProxy::GetData vector elements: 1", "Get data from entry",
          "Received swVersion: '0209' stored", "Received hwVersion: 'H01' stored"}) {
        EXPECT_TRUE(mLog.WaitFor(std::string("I ") + line)) << line;
    }

    PublishAndAwait({Record("0210", "", "VN035000A02")},
                    "Received partNumber: 'VN035000A02' stored");
    EXPECT_EQ(capabilities->GetEcuCapabilities().softwareVersion, "0210");
    EXPECT_EQ(capabilities->GetEcuCapabilities().hardwareVersion, "");
}

TEST_F(EcuCapabilitiesTest, EachSampleReplacesWhatItHoldsButByNoPlaceholder) {
    DT_identificationData_struct second;
    const std::string withZero("b\0b", 3);
    second.swVersion = Bytes(withZero);
    const struct {
        diagnosticinfo_host::IdentificationData records;
        const char* line;
        /// Address, software, hardware, part.
        std::vector<std::string> values;
    } rows[] = {
        {{Record("a", "H01", "part"), second, Address(0xC003)},
         "diagnosticAddress: 'C003' stored",
         {"C003", withZero, "H01", "part"}},
        {{Address(0)}, "Address: '0000' stored", {"0000", withZero, "H01", "part"}},
        {{Address(0xFFFF)}, "Address: 'FFFF' stored", {"FFFF", withZero, "H01", "part"}},
        {{Address(0xA3)}, "Address: '00A3' stored", {"00A3", withZero, "H01", "part"}},
        {{Record("0209", "H02", "VN")}, "Number: 'VN' stored", {"00A3", "0209", "H02", "VN"}},
        {{Record("----", "---", "-----------")},
         "Received partNumber: '-----------' is unknown and storing skipped, current partNumber: "
         "'VN'",
         {"00A3", "0209", "H02", "VN"}},
        {{Record("---", "----", "------------")},
         "Received partNumber: '------------' stored",
         {"00A3", "---", "----", "------------"}},
    };
    DiagnosticInfoServices services;
    StartAndSubscribe(services);
    for (const auto& row : rows) {
        PublishAndAwait(row.records, row.line);
        EXPECT_THAT(row.values, testing::ElementsAre(
                                    services.GetEcuDiagnosticAddress(), services.GetEcuSwVersion(),
                                    services.GetEcuHwVersion(), services.GetEcuPartNumber()))
            << row.line;
    }
}

TEST_F(EcuCapabilitiesTest, ServiceThatReturnsIsSubscribedAnewAndValuesLast) {
    DiagnosticInfoServices services;
    StartAndSubscribe(services);
    PublishAndAwait({Record("0209", "H01", "part")}, "Received partNumber: 'part' stored");
    services.Start();
    EXPECT_EQ(mLog.Count("DiagnosticInfoServices::Start"), 0U);

    mServer.StopOffer();
    ASSERT_TRUE(mLog.WaitFor("DiagnosticInfoServices service stopped"));
    EXPECT_EQ(services.GetEcuSwVersion(), "0209");
    services.HandleDiagnosticEvent();
    services.GetData();
    EXPECT_EQ(services.GetEcuSwVersion(), "0209");

    mServer.Publish({Record("0300", "H02", "new part")});
    mServer.Offer();
    ASSERT_TRUE(mLog.WaitFor("Received partNumber: 'new part' stored"));
    EXPECT_EQ(mLog.Count("Subscribing to DiagnosticInfo"), 1U);
    EXPECT_EQ(mLog.Count("DiagnosticInfoServices::Start"), 0U);
}

TEST_F(EcuCapabilitiesTest, PayloadThatDoesNotDeserializeIsAnIncidentAndNoSample) {
    DiagnosticInfoServices services;
    StartAndSubscribe(services);
    PublishAndAwait({Record("0209", "H01", "part")}, "Received partNumber: 'part' stored");
    mLog.Clear();
    mServer.PublishRaw({0, 0, 0, 1});
    ASSERT_TRUE(mLog.WaitFor("Event_deserialize_exception"));
    EXPECT_EQ(mLog.Count("Deserialization calculated invalid end position."), 1U);
    EXPECT_EQ(mLog.Count("HandleDiagnosticEvent"), 0U);
    PublishAndAwait({Record("0210", "H01", "next")}, "Received partNumber: 'next' stored");
}

TEST_F(EcuCapabilitiesTest, AWithdrawalWaitsForTheReceiveHandlerThatRuns) {
    Gate handlerRuns;
    Gate withdrawn;
    std::string lines;
    const auto previous = ara_log_host::ExchangeSink({});
    ara_log_host::ExchangeSink({[&](ara::log::LogLevel level, const std::string& text) {
                                    const bool first = lines.find("Get data") == std::string::npos;
                                    lines += text + '\n';
                                    previous.sink(level, text);
                                    if (first && text == "Get data from entry") {
                                        handlerRuns.Open();
                                        withdrawn.Pass();
                                    }
                                },
                                previous.level});
    DiagnosticInfoServices services;
    services.Start();
    mServer.Publish({Record("0209", "H01", "part")});
    mServer.Offer();
    handlerRuns.Pass();
    mServer.StopOffer();
    withdrawn.Open();
    EXPECT_TRUE(mLog.WaitFor("DiagnosticInfoServices service stopped"));
    ara_log_host::ExchangeSink(previous);
    EXPECT_LT(lines.find("Received partNumber: 'part' stored"), lines.find("service stopped"));
    EXPECT_EQ(services.GetEcuPartNumber(), "part");
}

TEST_F(EcuCapabilitiesTest, AReaderNeverSeesHalfAValue) {
    const std::string first(100, 'a');
    const std::string second(2000, 'b');
    DiagnosticInfoServices services;
    services.SetEcuSwVersion(first);
    std::thread middleware([&] {
        for (int i = 0; i < 1000; ++i) {
            services.SetEcuSwVersion(i % 2 == 0 ? second : first);
        }
    });
    for (int i = 0; i < 1000; ++i) {
        EXPECT_THAT(services.GetEcuSwVersion(), testing::AnyOf(first, second));
    }
    middleware.join();
}

TEST_F(EcuCapabilitiesTest, DestructionIsSafeWhateverTheServiceDoes) {
    std::atomic<bool> done{false};
    std::thread service([&] {
        for (unsigned i = 0; !done; ++i) {
            mServer.Offer();
            mServer.Publish({Record(std::to_string(i), "H", "P")});
            if (i % 3 == 0) {
                mServer.StopOffer();
            }
        }
    });
    for (int i = 0; i < 30; ++i) {
        vintrel::EcuCapabilitiesDiagInfoImpl capabilities;
        capabilities.Initialize();
        if (i % 2 == 0) {
            mLog.Clear();
            EXPECT_TRUE(mLog.WaitFor("Received swVersion"));
            EXPECT_FALSE(capabilities.GetEcuCapabilities().softwareVersion.empty());
        }
    }
    done = true;
    service.join();
    mLog.Clear();
    mServer.Publish({Record("late", "H", "P")});
    EXPECT_EQ(mLog.Count("late"), 0U);
}

}  // namespace
