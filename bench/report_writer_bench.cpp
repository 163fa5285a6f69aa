// Writing the report of a run of 100,000 files: changes.csv, couldnt-fix.csv, summary.json and
// README.txt, with the rows a Takeout run makes (paths, dates, zones, albums, notes, some
// needing quotes). Time and the memory the writing adds to the result it writes. Target: 1 s.
#include <benchmark/benchmark.h>

#include "core/repair/report_writer.h"
#include "tests/support/process_usage.h"
#include "tests/support/temp_dir.h"

namespace quillmere {
namespace {

constexpr int kRows = 100000;

RepairRow rowNumber(int i) {
  RepairRow row;
  row.item = i / 2 + 1;
  row.itemKind = i % 10 == 0 ? MediaUnit::Kind::livePhoto : MediaUnit::Kind::single;
  const std::string name = "IMG_2019" + std::to_string(1000000 + i) + ".jpg";
  row.source = "takeout-20231104T101010Z-00" + std::to_string(i % 9 + 1) +
               ".zip › Takeout/Google Photos/Photos from 2019/" + name;
  row.output = "Photos/2019/2019-0" + std::to_string(i % 9 + 1) + "/" + name;
  row.status = i % 50 == 0 ? RepairRow::Status::couldntFix : RepairRow::Status::fixed;
  row.dateBefore = i % 3 == 0 ? "" : "2019:07:04 15:30:00 +02:00";
  row.dateAfter = "2019:07:04 15:30:00";
  row.dateSource = i % 3 == 0 ? DateSource::takeout : DateSource::file;
  row.timeZone = "UTC+02:00";
  row.timeZoneSource = i % 3 == 0 ? OffsetSource::location : OffsetSource::file;
  row.locationWritten = i % 2 == 0;
  row.captionWritten = i % 7 == 0;
  if (i % 4 == 0) row.albums = {"Summer in Lisbon, 2019", "Family"};
  row.method = i % 20 == 0 ? "XMP sidecar + file dates" : "written into file";
  row.notes = {"Date from the export", "Time zone from the photo's location"};
  row.captureUTC = 1562247000.0 + i;
  return row;
}

void BM_Write100000RowReport(benchmark::State& state) {
  const testing::TempDir dir;
  ScanResult scan({"/home/ana/Downloads/takeout-20231104T101010Z-001.zip"});
  RepairResult result(dir / "Quillmere Repair 2026-11-16 10.43.07");
  result.rows.reserve(kRows);
  for (int i = 0; i < kRows; ++i) result.rows.push_back(rowNumber(i));
  result.summary = RepairEngine::summarize(result.rows, kRows / 2);
  const double resident = testing::residentMegabytes();
  const auto usage = testing::measureChild([&] { ReportWriter::write(result, scan); });
  for (auto _ : state) ReportWriter::write(result, scan);
  state.counters["result_MB"] = resident;
  state.counters["peak_MB"] = usage.peakMegabytes;
  state.counters["child_cpu_s"] = usage.cpuSeconds;
  state.counters["csv_MB"] =
      static_cast<double>(std::filesystem::file_size(result.reportFolder() / "changes.csv")) /
      1048576.0;
}
BENCHMARK(BM_Write100000RowReport)->Unit(benchmark::kMillisecond)->Iterations(5);

}  // namespace
}  // namespace quillmere

BENCHMARK_MAIN();
