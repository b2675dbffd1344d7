// The real mail that tests may read: $MORVANE_CORPUS, else ../shared/corpus beside the project. Where there is none a
// test has nothing to do.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

inline std::filesystem::path corpus_folder() {
    if (const char* const chosen = std::getenv("MORVANE_CORPUS")) return chosen;
    const std::filesystem::path here = std::filesystem::absolute(__FILE__);  // tests/unit/support/corpus.h
    return here.parent_path().parent_path().parent_path().parent_path().parent_path() / "shared" / "corpus";
}

struct CorpusFile {
    std::string name;
    std::string content;
};

// The files whose name ends in one of the endings, in order.
inline std::vector<CorpusFile> corpus_files(const std::vector<std::string>& endings) {
    std::vector<CorpusFile> files;
    std::error_code none;
    for (auto entry = std::filesystem::recursive_directory_iterator(corpus_folder(), none);
         entry != std::filesystem::recursive_directory_iterator(); entry.increment(none)) {
        if (none) break;
        const std::string name = entry->path().filename().string();
        const bool wanted = std::any_of(endings.begin(), endings.end(),
                                        [&](const std::string& ending) { return name.ends_with(ending); });
        if (!wanted || !entry->is_regular_file()) continue;
        std::ifstream in(entry->path(), std::ios::binary);
        files.push_back({name, {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()}});
    }
    std::sort(files.begin(), files.end(), [](const CorpusFile& a, const CorpusFile& b) { return a.name < b.name; });
    return files;
}
