#include "cvs_entries.h"

#include "gen_file.h"
#include "gen_path.h"
#include "indgen.h"
#include "mstring.h"
#include "plat_time.h"

#include <cstring>

namespace {

// Seconds between 1 January 1601 (the wall clock's origin) and 1 January 1970.
constexpr int64_t kSecondsFrom1601To1970 = 11644473600LL;
// How far read_time lies behind the second in which a read began (see the class comment).
constexpr int32_t kReadTimeMargin = 2;

// The field from `*cursor` to the next `/`, moving `*cursor` behind that `/`. False when there
// is no `/`.
bool takeField(const char** cursor, ut_string* field) {
    const char* slash = std::strchr(*cursor, '/');
    if (!slash)
        return false;
    *field = ut_string(*cursor, static_cast<int>(slash - *cursor));
    *cursor = slash + 1;
    return true;
}

} // namespace

MStringKey::MStringKey(std::string_view text)
    : text_(MString_new(static_cast<int>(text.size()) + 1)) {
    MString_appendn(text_, text.data(), static_cast<int>(text.size()));
}

MStringKey::MStringKey(MStringKey&& other) noexcept : text_(other.text_) {
    other.text_ = nullptr;
}

MStringKey& MStringKey::operator=(MStringKey&& other) noexcept {
    if (this != &other) {
        if (text_)
            MString_delete(text_);
        text_ = other.text_;
        other.text_ = nullptr;
    }
    return *this;
}

MStringKey::~MStringKey() {
    if (text_)
        MString_delete(text_);
}

std::string_view MStringKey::view() const {
    return text_ ? std::string_view(text_->text, static_cast<size_t>(text_->length))
                 : std::string_view();
}

const char* MStringKey::c_str() const {
    return text_ ? text_->text : "";
}

bool parseEntriesLine(const char* line, CVSEntry* entry) {
    if (!line || line[0] != '/')
        return false;
    const char* cursor = line + 1;
    ut_string version;
    ut_string date;
    if (!takeField(&cursor, &entry->name) || !takeField(&cursor, &version) ||
        !takeField(&cursor, &date) || !takeField(&cursor, &entry->options))
        return false;

    entry->new_ = version.c_str()[0] == '0';
    entry->removed = !entry->new_ && version.c_str()[0] == '-';
    if (entry->new_)
        entry->version = "New File";
    else if (entry->removed)
        entry->version = version.substr(1);
    else
        entry->version = version;
    entry->date = entry->new_ || entry->removed ? ut_string("N/A") : date;

    // The tag field runs to the end of the line. One `T` goes; a date tag (`D...`) stays whole.
    if (*cursor == 'T')
        ++cursor;
    entry->tag = *cursor ? ut_string(cursor) : ut_string("HEAD");
    return true;
}

CVSEntriesFile::CVSEntriesFile(const char* path, bool frozen) : frozen(frozen), path(path) {
    read();
}

bool CVSEntriesFile::read() {
    int64_t startMs = plat_wall_clock_ms();
    FILE* file = gen_fopen(path.c_str(), "re");
    if (!file)
        return false;
    // The lines go into a new map, which replaces the image only once the whole file was read:
    // a file that opens but fails to read (a directory in its place) leaves the image alone.
    EntryMap fresh;
    char* line = nullptr;
    int capacity = 0;
    while (gen_readline(file, &line, &capacity)) {
        auto entry = std::make_unique<CVSEntry>();
        if (!parseEntriesLine(line, entry.get()))
            continue;
        std::string_view name(entry->name.c_str(), static_cast<size_t>(entry->name.length()));
        auto found = fresh.find(name);
        if (found != fresh.end())
            found->second = std::move(entry);
        else
            fresh.emplace(MStringKey(name), std::move(entry));
    }
    gen_free(line);
    bool failed = std::ferror(file) != 0;
    std::fclose(file);
    if (failed)
        return false;
    entries.swap(fresh);
    if (!frozen)
        read_time = startMs > 0 ? static_cast<int32_t>(startMs / 1000 - kSecondsFrom1601To1970) -
                                      kReadTimeMargin
                                : 0;
    return true;
}

void CVSEntriesFile::refresh() {
    if (frozen)
        return;
    PlatFileStatus status;
    if (gen_stat(path.c_str(), &status) != 0)
        return;
    if (static_cast<int32_t>(status.modifiedSec) > read_time)
        read();
}

const CVSEntry* CVSEntriesFile::find(const char* path) {
    refresh();
    if (!path)
        return nullptr;
    auto found = entries.find(std::string_view(gen_basename(path)));
    return found == entries.end() ? nullptr : found->second.get();
}

bool CVSEntriesFile::contains(const char* name) {
    refresh();
    return name && entries.find(std::string_view(name)) != entries.end();
}

bool CVSEntriesFile::isRemoved(const char* path) {
    const CVSEntry* entry = find(path);
    return entry && entry->removed;
}

bool CVSEntriesFile::isNew(const char* path) {
    const CVSEntry* entry = find(path);
    return entry && entry->new_;
}

ut_string CVSEntriesFile::version(const char* path) {
    const CVSEntry* entry = find(path);
    return entry ? entry->version : ut_string();
}

bool CVSEntriesFile::isResultOfMerge(const char* path) {
    const CVSEntry* entry = find(path);
    return entry && entry->date.find("Result of merge") >= 0;
}

ut_string CVSEntriesFile::date(const char* path) {
    const CVSEntry* entry = find(path);
    return entry ? entry->date : ut_string();
}

ut_string CVSEntriesFile::options(const char* path) {
    const CVSEntry* entry = find(path);
    return entry ? entry->options : ut_string();
}

ut_string CVSEntriesFile::tag(const char* path) {
    const CVSEntry* entry = find(path);
    return entry ? entry->tag : ut_string();
}

bool CVSEntriesFile::removeEntry(const char* path) {
    if (!path)
        return false;
    auto found = entries.find(std::string_view(gen_basename(path)));
    if (found == entries.end())
        return false;
    entries.erase(found);
    return true;
}

const CVSEntriesFile::EntryMap& CVSEntriesFile::entriesMap() {
    refresh();
    return entries;
}

ut_string CVSEntriesFile::directory() const {
    char* cvsDir = gen_dirname(path.c_str());
    char* dir = gen_dirname(cvsDir);
    ut_string result(dir ? dir : "");
    gen_free(dir);
    gen_free(cvsDir);
    return result;
}

char* entriesPathOf(const char* dir) {
    return gen_path_join3(dir, "CVS", "Entries");
}

CVSEntriesFile* EntriesCache::entriesFor(const char* dir) {
    // Questions come in runs about one directory: the key of the last one is kept, so that a
    // repeated question costs a comparison instead of a join of paths.
    std::string_view dirText = dir ? std::string_view(dir) : std::string_view();
    if (!lastDirValid || dirText != lastDir) {
        char* key = entriesPathOf(dir);
        lastKey = key;
        gen_free(key);
        lastDir = dirText;
        lastDirValid = true;
    }
    auto found = images.find(std::string_view(lastKey));
    if (found != images.end())
        return found->second.get();
    if (images.size() > 20)
        images.erase(std::next(images.begin()));
    auto image = std::make_unique<CVSEntriesFile>(lastKey.c_str(), false);
    CVSEntriesFile* result = image.get();
    images.emplace(MStringKey(lastKey), std::move(image));
    return result;
}

void EntriesCache::markFileStale(const char* filename) {
    char* dir = gen_dirname(filename);
    entriesFor(dir ? dir : ".")->markStale();
    gen_free(dir);
}

void EntriesCache::markAllStale() {
    for (auto& [key, image] : images)
        image->markStale();
}

char* readTemplate(const char* dir) {
    char* templatePath = gen_path_join3(dir, "CVS", "Template");
    FILE* file = gen_fopen(templatePath, "re");
    gen_free(templatePath);
    if (!file)
        return nullptr;
    MString* text = MString_new(256);
    char* line = nullptr;
    int capacity = 0;
    while (gen_readline(file, &line, &capacity)) {
        MString_append(text, line);
        MString_append(text, "\n");
    }
    gen_free(line);
    std::fclose(file);
    return MString_peel(text);
}
