#include "app/view_texts.h"

#include <QLocale>

#include "app/path_text.h"

namespace quillmere {
namespace {

// Counts that the window shows without grouping ("2 selections", "3 time zones guessed").
QString plain(std::int64_t value) { return QString::number(value); }

}  // namespace

QString ViewTexts::count(std::int64_t value) {
  QLocale locale;
  if (locale.language() == QLocale::C) locale = QLocale(QLocale::English, QLocale::UnitedStates);
  locale.setNumberOptions({});
  return locale.toString(static_cast<qlonglong>(value));
}

QString ViewTexts::progress(const WorkProgress& progress) {
  return tr("%1 — %2 of %3")
      .arg(QString::fromStdString(progress.phase), count(progress.done), count(progress.total));
}

QString ViewTexts::scanHeading(ExportKind kind) {
  return kind == ExportKind::snapchat ? tr("Here's what's in your Snapchat export")
                                      : tr("Here's what's in your Google Photos export");
}

QString ViewTexts::sourceLine(const std::vector<std::filesystem::path>& inputs,
                              const ScanSummary& summary) {
  QString line;
  if (inputs.size() == 1) {
    std::filesystem::path name = inputs.front().filename();
    if (name.empty()) name = inputs.front().parent_path().filename();
    line = toQString(name);
  } else {
    line = tr("%1 selections").arg(plain(static_cast<std::int64_t>(inputs.size())));
  }
  if (summary.zipParts >= 1) {
    line += summary.zipParts == 1 ? tr(" · %1 zip part").arg(plain(summary.zipParts))
                                  : tr(" · %1 zip parts").arg(plain(summary.zipParts));
  }
  return line;
}

std::vector<StatText> ViewTexts::scanStats(const ScanSummary& s, ExportKind kind) {
  const bool snapchat = kind == ExportKind::snapchat;
  std::vector<StatText> stats;
  stats.push_back({s.items, s.items == 1 ? tr("item") : tr("items"),
                   tr("%1 files: %2 photos, %3 videos")
                       .arg(count(s.mediaFiles), count(s.photos), count(s.videos))});
  if (snapchat) {
    stats.push_back({s.overlays, s.overlays == 1 ? tr("overlay") : tr("overlays"),
                     tr("captions, stickers, drawings")});
  } else {
    QString detail;
    if (s.duplicateCopies >= 1) {
      detail = s.duplicateCopies == 1 ? tr("%1 album copy merged").arg(count(s.duplicateCopies))
                                      : tr("%1 album copies merged").arg(count(s.duplicateCopies));
    }
    stats.push_back({s.albums, s.albums == 1 ? tr("album") : tr("albums"), detail});
  }
  stats.push_back(
      {s.withSidecar, snapchat ? tr("found in Snapchat's history") : tr("with Google's metadata"),
       s.withoutSidecar >= 1 ? tr("%1 without").arg(count(s.withoutSidecar)) : tr("all matched")});
  return stats;
}

std::vector<FindingText> ViewTexts::findings(const ScanSummary& s, ExportKind kind) {
  const bool snapchat = kind == ExportKind::snapchat;
  std::vector<FindingText> rows;
  rows.push_back(
      {Symbol::calendar, Tint::orange,
       s.photosMissingDate == 1
           ? tr("%1 photo has no date in the file").arg(count(1))
           : tr("%1 photos have no date in the file").arg(count(s.photosMissingDate)),
       s.datesRecoverable < 1 ? tr("none can be restored")
       : snapchat
           ? tr("%1 can be restored from Snapchat's history").arg(count(s.datesRecoverable))
           : tr("%1 can be restored from Google's metadata").arg(count(s.datesRecoverable))});
  if (s.overlays >= 1) {
    rows.push_back(
        {Symbol::textformat, Tint::yellow,
         s.overlays == 1
             ? tr("%1 Memory has its captions or stickers in a separate file").arg(count(1))
             : tr("%1 Memories have their captions or stickers in a separate file")
                   .arg(count(s.overlays)),
         tr("merged back onto photos (originals kept); video overlays saved alongside for now")});
  }
  const std::int64_t dayOnly = s.matchedByOrder + s.dayOnly;
  if (dayOnly >= 1) {
    rows.push_back({Symbol::clockQuestion, Tint::secondary,
                    dayOnly == 1 ? tr("%1 item can only be dated to the day").arg(count(1))
                                 : tr("%1 items can only be dated to the day").arg(count(dayOnly)),
                    tr("the exact time isn't recoverable; these are marked in the change log")});
  }
  rows.push_back(
      {Symbol::mappin, Tint::blue,
       s.photosMissingLocation == 1
           ? tr("%1 photo has no place in the file").arg(count(1))
           : tr("%1 photos have no place in the file").arg(count(s.photosMissingLocation)),
       s.locationsRecoverable >= 1 ? tr("%1 can be restored").arg(count(s.locationsRecoverable))
                                   : QString()});
  if (s.captionsInTakeout >= 1 && !snapchat) {
    rows.push_back(
        {Symbol::textBubble, Tint::purple,
         s.captionsInTakeout == 1
             ? tr("%1 caption is only in Google's metadata").arg(count(1))
             : tr("%1 captions are only in Google's metadata").arg(count(s.captionsInTakeout)),
         tr("written into the files")});
  }
  if (s.albums >= 1) {
    rows.push_back(
        {Symbol::rectangleStack, Tint::green,
         s.albums == 1 ? tr("%1 album").arg(count(1)) : tr("%1 albums").arg(count(s.albums)),
         tr("saved as keywords and album lists")});
  }
  return rows;
}

QString ViewTexts::doneTitle(const RepairSummary& summary) {
  return summary.failed == 0 ? tr("Repair finished") : tr("Repair finished with problems");
}

std::vector<StatText> ViewTexts::doneFirstRow(const RepairSummary& s) {
  return {{s.fixed, tr("files fixed"), QString()},
          {s.unchanged, tr("already correct"), tr("copied as-is")},
          {s.couldntFix + s.failed, tr("need a look"), tr("listed in couldnt-fix.csv")}};
}

std::vector<StatText> ViewTexts::doneSecondRow(const RepairSummary& s) {
  std::vector<StatText> row;
  row.push_back(
      {s.datesWritten, tr("dates restored"),
       s.zonesGuessed >= 1 ? tr("%1 time zones guessed").arg(plain(s.zonesGuessed)) : QString()});
  row.push_back({s.locationsWritten, tr("places restored"), QString()});
  if (s.overlaysMerged >= 1) {
    row.push_back({s.overlaysMerged, tr("overlays merged"), tr("originals in Extras")});
  } else {
    row.push_back({s.captionsWritten, tr("captions restored"), QString()});
  }
  return row;
}

QString ViewTexts::importConfirmTitle(std::int64_t items) {
  return tr("Add %1 items to your Immich library?").arg(count(items));
}

QString ViewTexts::importConfirmMessage() {
  return tr(
      "They'll go into albums on your Immich server, with dates, places, and Live Photos "
      "restored. Quillmere only adds; it never changes or deletes anything in your "
      "library.");
}

QString ViewTexts::importDoneHeadline(const ImportSummary& s) {
  const QString title = QString::fromStdString(s.folderTitle);
  return s.imported == 1
             ? tr("Added %1 item to Immich, in the albums of “%2”").arg(count(1), title)
             : tr("Added %1 items to Immich, in the albums of “%2”").arg(count(s.imported), title);
}

QStringList ViewTexts::importDoneLines(const ImportSummary& s) {
  QStringList lines;
  if (s.livePhotos >= 1) {
    lines << (s.livePhotos == 1 ? tr("%1 Live Photo re-paired").arg(count(1))
                                : tr("%1 Live Photos re-paired").arg(count(s.livePhotos)));
  }
  if (s.livePhotosSplit >= 1) {
    lines << (s.livePhotosSplit == 1
                  ? tr("%1 Live Photo added as separate photo and video").arg(count(1))
                  : tr("%1 Live Photos added as separate photo and video")
                        .arg(count(s.livePhotosSplit)));
  }
  if (s.alreadyImported >= 1) {
    lines << (s.alreadyImported == 1
                  ? tr("%1 item already added earlier, skipped").arg(count(1))
                  : tr("%1 items already added earlier, skipped").arg(count(s.alreadyImported)));
  }
  if (s.failed >= 1) {
    lines << (s.failed == 1
                  ? tr("%1 item couldn't be added (see Report/photos-import.csv)").arg(count(1))
                  : tr("%1 items couldn't be added (see Report/photos-import.csv)")
                        .arg(count(s.failed)));
  }
  return lines;
}

QString ViewTexts::importFailedHint() {
  return tr(
      "Or upload the Photos folder yourself with Immich's web page or its command-line "
      "tool.");
}

}  // namespace quillmere
