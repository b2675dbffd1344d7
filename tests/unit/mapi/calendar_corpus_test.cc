// Calendars of the world: every .ics file of the corpus ($MORVANE_CORPUS, else the folder shared/corpus beside the
// project), whole, cut at many places and with many bytes turned. What comes of them is an answer, and XML that is read
// again. Without a corpus there is nothing to do.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "mapi/calendar.h"
#include "mapi/property_xml.h"
#include "support/home.h"

namespace {

namespace fs = std::filesystem;

fs::path corpus() {
    if (const char* given = std::getenv("MORVANE_CORPUS")) return given;
    for (fs::path folder = fs::read_symlink("/proc/self/exe"); folder.has_relative_path();
         folder = folder.parent_path())
        if (fs::is_directory(folder / "shared" / "corpus")) return folder / "shared" / "corpus";
    return {};
}

std::vector<std::string> calendars() {
    std::vector<std::string> found;
    const fs::path folder = corpus();
    if (folder.empty()) return found;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.path().extension() != ".ics") continue;
        std::ifstream file(entry.path(), std::ios::binary);
        found.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    return found;
}

// Every XML of the list is one.
std::size_t convert(const std::string& text) {
    std::size_t entries = 0;
    const auto made = mapi_IcalToPnProps(text, "subject");
    for (const MAPI_ICAL_2_XML* entry = made.get(); entry != nullptr; entry = entry->next.get()) {
        im_Item tnef = im_create(im_Domain::temporary, kScratchItem);
        EXPECT_NO_THROW(mapi_CreateMapiInfoFromXml(entry->pPnPropsXml, tnef)) << entry->pPnPropsXml;
        ++entries;
    }
    return entries;
}

TEST(CalendarCorpus, WholeCutAndTurned) {
    const std::vector<std::string> texts = calendars();
    if (texts.empty()) GTEST_SKIP() << "no corpus";
    const TestHome home;
    std::size_t converted = 0;
    for (const std::string& text : texts) {
        converted += convert(text) > 0 ? 1 : 0;
        const std::size_t step = 1 + text.size() / 60;
        for (std::size_t at = text.size() % step; at < text.size(); at += step) {
            convert(text.substr(0, at));
            std::string turned = text;
            turned[at] = static_cast<char>(turned[at] ^ (1 << at % 8));
            convert(turned);
        }
    }
    EXPECT_GT(converted, texts.size() / 4) << "a corpus of calendars";
}

}  // namespace
