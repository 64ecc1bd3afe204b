// Documents as text: words, verdict, plain text and metrics.
#include <cli/check.h>
#include <cli/fields.h>
#include <cli/metrics.h>
#include <cli/output.h>
#include <cli/plain_text.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>

namespace disk_info::cli {
namespace {

// `answers`: fields by call, "fs" and the partition for a filesystem. A number is the code of a
// service error; a call without an entry returned no result.
Document DocumentOf(Command command, const char* answers) {
    const Json json = Json::parse(answers);
    return MakeDocument({command, ""}, [&](Call call, const std::string& partition) {
        Answer answer;
        answer.fields = json.value(NameOf(call) + partition, Json());
        if (answer.fields.is_number()) answer.error = {ErrorKind::kService, answer.fields};
        return answer;
    });
}

using enum Verdict;
const struct {
    const char* fields;  // the words of the first one are compared
    const char* words;
    Verdict verdict = kUnknown;
} kFieldCases[] = {
    {R"({"size": 1023999})", "1.02 MB (1000 KiB)"},
    {R"({"size": 999600})", "1.00 MB (976 KiB)"},
    {R"({"size": 10995116277760})", "11.0 TB (10.0 TiB)"},
    {R"({"size": 18446744073709551615})", "18.4 EB (16.0 EiB), an impossible value"},
    {R"({"specVersion": 4641})", "12.2.1"},
    {R"({"versionMajor": 0, "versionMinor": 0, "versionTertiary": 0})", "not reported"},
    {R"({"ffuSupport": false, "type": "NVMe"})", "no"},
    {R"({"ffuSupport": false, "type": "UFS", "extendedFeatureSupport": ""})", "not reported"},
    {R"({"provisioningType": 3, "type": "UFS"})", "thin, discarded blocks read as zeros"},
    {R"({"writeBoosterEnabled": false, "writeBoosterSupport": 0})", ""},
    {R"({"writeBoosterFraction": 0.125})", "12.5 % of the disk"},
    {R"({"dataUnitsWritten": 0})", "not reported"},
    {R"({"dataUnitsWritten": 1953124999999999})", "1000 EB"},
    {R"({"dataUnitsWritten": 1953125000000000})",
     "1953125000000000 data units, an impossible value"},
    {R"({"totalNumberOfErrors": 9223372036854775808})", "9223372036854775808, an impossible value"},
    {R"({"ufsFeatures": "0x31"})", "field firmware update, temperature events"},
    {R"({"extendedFeatureSupport": "0x80000100"})", "Write Booster, bit 31"},
    {R"({"isActive": false, "linkState": ""})", "not reported"},
    {R"({"lastErrorCode": 4, "errorCount": 1})", "bad checksum", kWatch},
    {R"({"lastErrorCode": 4, "errorCount": 0})", "", kOk},
    {R"({"preEndOfLifeInfo": "0x02"})", "warning, 80 % of the reserved blocks are used", kWatch},
    {R"({"preEndOfLifeInfo": "0x03"})", "urgent", kFailing},
    {R"({"deviceLifeTimeEstimationA": "0x09"})", "80 % to 90 % used", kOk},
    {R"({"deviceLifeTimeEstimationA": "0x0A"})", "90 % to 100 % used", kWatch},
    {R"({"deviceLifeTimeEstimationA": "0x0c"})", "not reported"},
    {R"({"deviceLifeTimeEstimationB": "9"})", "80 % to 90 % used", kOk},
    {R"({"percentageUsed": 89})", "89 %", kOk},
    {R"({"percentageUsed": 90})", "90 %", kWatch},
    {R"({"percentageUsed": 101})", "101 %, beyond the expected life", kWatch},
    {R"({"numberOfMediaErrors": 1})", "1", kWatch},
    {R"({"availableSpare": 100, "availableSpareThreshold": 100})", "100 %", kOk},
    {R"({"availableSpare": 10, "availableSpareThreshold": 10})", "10 %", kWatch},
    {R"({"availableSpare": 0, "availableSpareThreshold": 1})", "0 %", kFailing},
    {R"({"availableSpare": 0, "criticalWarning": 2})", "not reported", kWatch},
    {R"({"availableSpare": 0, "criticalWarning": 1})", "0 %", kFailing},
    {R"({"criticalWarning": 2})", "the temperature is beyond a threshold", kWatch},
    {R"({"criticalWarning": 4})", kCriticalWarnings[2].words, kFailing},
    {R"({"criticalWarning": 8})", "the media is read-only", kFailing},
    {R"({"criticalWarning": 16})", "the backup of the volatile memory failed", kFailing},
    {R"({"criticalWarning": 32})", kCriticalWarnings[5].words, kWatch},
    {R"({"criticalWarning": 128})", "bit 7", kWatch},
    {R"({"criticalWarning": -1})", "not reported"},
};

TEST(CommandTextTest, FieldsHaveWordsAndAVerdict) {
    for (const auto& c : kFieldCases) {
        SCOPED_TRACE(c.fields);
        const Json fields = Json::parse(c.fields);
        EXPECT_EQ(Words(fields, fields.begin().key()), c.words);
        EXPECT_EQ(NameOf(Assess({{"", &fields}}).verdict), NameOf(c.verdict));
    }
}

TEST(CommandTextTest, PlainTextBeginsWithASummaryAndMarksFindings) {
    const Document document = DocumentOf(Command::kStatus, R"({
        "info": {"vendor": "V", "modelNumber": "M ", "writeBoosterMaxAllocUnits": 0, "size": 5},
        "health": {"availableSpare": 5, "availableSpareThreshold": 5, "criticalWarning": 72,
                   "deviceLifeTimeEstimationA": "0x05", "deviceLifeTimeEstimationB": "0x0a"},
        "power": -1, "fsmetadata": {"errorCount": 3}})");
    EXPECT_EQ(PlainText(document, true, 60),
              "V M, 5 B: \x1b[31mfailing\x1b[0m: Critical warning: the media is read-only\n"
              "                   Critical warning: bit 6\n"
              "                   Available spare: 5 %, at its threshold of\n"
              "                   5 %\n"
              "                   Life time estimation B: 90 % to 100 %\n"
              "                   used\n"
              "                   Error count of metadata: 3\n\n"
              "Info\n  Vendor:                    V\n  Model number:              M\n"
              "  Size:                      5 B (5 B)\n\nHealth\n"
              "  Available spare:           [\x1b[33m#\x1b[0m...................] "
              "\x1b[33m5 %\x1b[0m\n"
              "  Available spare threshold: 5 %\n"
              "  Critical warning:          \x1b[31mthe media is read-only; bit 6\x1b[0m\n"
              "  Life time estimation A:    [\x1b[32m########\x1b[0m............] 40 % to\n"
              "                              50 % used\n"
              "  Life time estimation B:    [\x1b[33m##################\x1b[0m..] "
              "\x1b[33m90 % to\x1b[0m\n"
              "                              \x1b[33m100 % used\x1b[0m\n\n"
              "Filesystem userdata\n  Result:                    none\n\n"
              "Filesystem metadata\n  Error count:               \x1b[33m3\x1b[0m\n");
    EXPECT_EQ(PlainText(DocumentOf(Command::kHealth, "{}"), true),
              "Result:  none\nVerdict: unknown: the health data could not be read\n");
    const Document status = DocumentOf(Command::kStatus, R"({"fsmetadata": {"errorCount": 0}})");
    EXPECT_THAT(PlainText(status, false), testing::StartsWith("Disk: unknown: the health data "));
}

TEST(CommandTextTest, AScreenHasWhatFits) {
    const char* const frame = "abcd\n\x1b[31mabc\x1b[0m\nd\n";
    EXPECT_EQ(OnScreen(frame, {3, 3}), "\x1b[H\x1b[Kabc\n\x1b[K\x1b[31mabc\x1b[0m\n\x1b[J1 m");
    EXPECT_EQ(OnScreen(frame, {4, 0}),
              "\x1b[H\x1b[Kabcd\n\x1b[K\x1b[31mabc\x1b[0m\n\x1b[Kd\n\x1b[J");
}

TEST(CommandTextTest, CheckHasAStatusOneLineAndPerformanceData) {
    const struct {
        const char* answers;
        int status;
        const char* text;
    } cases[] = {
        {R"({"info": {"modelNumber": "a|b"}, "health": {"percentageUsed": 89},
             "fsmetadata": {"errorCount": 0}})",
         0,
         "DISK OK - a b: all reported values are within limits | life_used=89%;89 "
         "errors_metadata=0;0\n"},
        {R"({"health": {"availableSpare": 10, "availableSpareThreshold": 10,
                        "criticalWarning": 4, "dataUnitsWritten": 2}})",
         2,
         "DISK CRITICAL - Disk: Critical warning: reliability is degraded by media or internal "
         "errors; Available spare: 10 %, at its threshold of 10 % | spare=10%;11:;10: "
         "written=1024000B\n"},
        {R"({"info": -1, "health": -1})", 3, "DISK UNKNOWN - info, health: service error -1: "},
    };
    for (const auto& c : cases) {
        const CheckResult result = Check(DocumentOf(Command::kCheck, c.answers));
        EXPECT_THAT(result.text, testing::StartsWith(c.text));
        EXPECT_EQ(result.status, c.status) << c.answers;
    }
}

TEST(CommandTextTest, JsonHasFindingsAndReadings) {
    const Document document = DocumentOf(Command::kStatus, R"({
        "info": {"vendor": "V", "modelNumber": "M ", "size": 0},
        "health": {"percentageUsed": 90, "deviceLifeTimeEstimationA": "0x02", "criticalWarning": 0,
                   "deviceLifeTimeEstimationB": "0x04", "dataUnitsWritten": 36028797018964},
        "power": {"linkState": "", "isActive": false}, "fsuserdata": {"errorCount": 1}})");
    EXPECT_EQ(MetricsText(document).find("written_bytes"), std::string::npos);
    const Json json = ToJson(document);
    EXPECT_EQ(json["assessment"]["findings"], Json::parse(R"([
        {"field": "percentageUsed", "partition": null, "verdict": "watch",
         "reason": "Expected life used: 90 %"},
        {"field": "errorCount", "partition": "userdata", "verdict": "watch",
         "reason": "Error count of userdata: 1"}])"));
    EXPECT_EQ(json["readings"], Json::parse(R"({
        "model": "V M", "sizeBytes": null, "lifeUsedRatio": 0.9, "spareRatio": null,
        "spareThresholdRatio": null, "criticalWarnings": [], "reservedBlocks": null,
        "writtenBytes": null, "mediaErrors": null, "errorLogEntries": null, "ioErrors": null,
        "powerState": null, "isActive": null,
        "filesystemErrors": {"userdata": 1, "metadata": null}})"));
}

TEST(CommandTextTest, MetricsHaveReportedValuesInBaseUnits) {
    const Document document = DocumentOf(Command::kMetrics, R"({
        "info": {"type": "NVMe", "vendor": "a\"b\\c\nd", "modelNumber": "", "serialNumber": "s",
                 "firmwareRevision": "f", "versionMajor": 1, "versionMinor": 4,
                 "versionTertiary": 2, "size": 5},
        "health": {"availableSpare": 5, "availableSpareThreshold": 10, "percentageUsed": 130,
                   "criticalWarning": 170, "dataUnitsWritten": 2, "numberOfMediaErrors": 7,
                   "numberOfErrorLogEntries": 8, "preEndOfLifeInfo": "0x02",
                   "deviceLifeTimeEstimationA": "0x04", "deviceLifeTimeEstimationB": "0x01",
                   "totalNumberOfErrors": 18446744073709551615},
        "power": {"currentPowerState": 3, "isOperational": true},
        "fsmetadata": {"errorCount": 4}})");
    std::ostringstream expected;
    expected << std::ifstream(std::filesystem::path(OUTPUT_CHECKER).replace_filename("metrics.txt"))
                    .rdbuf();
    // The file has no help texts.
    const std::regex help("(# HELP \\w+) .+\n");
    EXPECT_EQ(std::regex_replace(MetricsText(document), help, "$1\n"), expected.str());
    const std::string open = MetricsText(document, MetricsFormat::kOpenMetrics);
    EXPECT_NE(open.find("_bytes counter\n# UNIT disk_info_written_bytes bytes\n# HELP disk_info_w"),
              std::string::npos);
    EXPECT_TRUE(open.ends_with("\n# EOF\n"));
    const std::regex comment("# .+\n");
    EXPECT_EQ(std::regex_replace(open, comment, ""),
              std::regex_replace(expected.str(), comment, ""));
}

}  // namespace
}  // namespace disk_info::cli
