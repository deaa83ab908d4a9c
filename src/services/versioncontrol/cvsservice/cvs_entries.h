// The administrative files of a CVS working directory, read directly without running cvs:
// images of CVS/Entries, the cache of images a server keeps, and CVS/Template. Nothing here
// writes into CVS/; cvs does that.
#pragma once

#include "ut_string.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

struct MString;

// One owned MString as the key of an ordered map. Keys compare in byte order (unsigned bytes,
// a shorter prefix first); lookups by `const char*` or `std::string_view` allocate nothing.
class MStringKey {
public:
    explicit MStringKey(std::string_view text);
    MStringKey(MStringKey&& other) noexcept;
    MStringKey& operator=(MStringKey&& other) noexcept;
    MStringKey(const MStringKey&) = delete;
    MStringKey& operator=(const MStringKey&) = delete;
    ~MStringKey();

    std::string_view view() const;
    const char* c_str() const;

private:
    MString* text_;
};

struct MStringByteOrder {
    using is_transparent = void;
    bool operator()(const MStringKey& a, const MStringKey& b) const { return a.view() < b.view(); }
    bool operator()(const MStringKey& a, std::string_view b) const { return a.view() < b; }
    bool operator()(std::string_view a, const MStringKey& b) const { return a < b.view(); }
};

// One file line of CVS/Entries.
struct CVSEntry {
    ut_string name;    // the file's name in its directory
    ut_string version; // the version, or "New File"
    bool removed = false;
    bool new_ = false; // added and not yet committed (`new` is a keyword)
    ut_string date;    // the timestamp field, or "N/A" for a new or removed file
    ut_string options; // the keyword option field as it stands
    ut_string tag;     // the sticky tag without its leading `T`, or "HEAD"
};

// Parses one line of CVS/Entries (without its line end) into `entry`. False, leaving `entry`
// unspecified, for a line that is not a file line: one not beginning with `/` (directory lines
// begin with `D`), or one whose name, version, date or options field lacks its closing `/`.
bool parseEntriesLine(const char* line, CVSEntry* entry);

// The image of one CVS/Entries file.
//
// Reading: a file that can't be opened, or fails while being read, leaves the image (and
// read_time) as it was, so a file that can't be read at construction gives an empty image:
// every name counts as not under version control. Lines that are not file lines are skipped; of two
// lines for one name the later wins.
//
// Re-reading: unless `frozen`, every query but removeEntry first compares the file's
// modification time with read_time and reads the file again when it is later (as signed 32-bit
// seconds since 1970); a file whose modification time can't be found is not re-read.
// read_time stands for the moment of the last read. The file's access time can't stand for it
// here, since Linux updates access times lazily or never (relatime, noatime): read_time is the
// wall-clock second in which the read began, less two. A change made during or after the read
// is then always later, whatever the granularity of the file system's clock; the price is that
// a changed file is read at every query for the first two seconds after its change.
//
// Queries that take a path use only its last component (separators `/`, `\` and `:`);
// `contains` takes the name as it is. Strings come back as ut_string copies (sharing the
// entry's text), the null string when there is no such entry. Nothing here waits or re-enters
// the event loop; times are whole seconds since 1970.
class CVSEntriesFile {
public:
    using EntryMap = std::map<MStringKey, std::unique_ptr<CVSEntry>, MStringByteOrder>;

    // Reads `path` (the full path of an Entries file) at once.
    CVSEntriesFile(const char* path, bool frozen);
    CVSEntriesFile(const CVSEntriesFile&) = delete;
    CVSEntriesFile& operator=(const CVSEntriesFile&) = delete;

    bool contains(const char* name);
    bool isRemoved(const char* path);
    bool isNew(const char* path);
    ut_string version(const char* path);
    // Its date contains "Result of merge".
    bool isResultOfMerge(const char* path);
    ut_string date(const char* path);
    ut_string options(const char* path);
    ut_string tag(const char* path);
    // Takes the entry out of the image (the file on disk stays as it is), without a re-read
    // first; true if there was one.
    bool removeEntry(const char* path);
    // The map itself, in byte order of the names, for a walk; re-read first if changed. Any
    // later query but removeEntry may read the file again, which replaces the map's entries
    // and ends the walk's iterators: a walk that queries takes the names first.
    const EntryMap& entriesMap();
    // The working directory whose CVS/Entries this is: the directory part of the directory part
    // of `path`; empty when `path` has no such parts.
    ut_string directory() const;
    // read_time becomes 0, so the next query reads the file again.
    void markStale() { read_time = 0; }

private:
    // Reads the file again if it changed since the last read.
    void refresh();
    // Reads the file into the map; false (and nothing changed) when it can't be opened.
    bool read();
    // The entry named by the last component of `path`, after a refresh; null if none.
    const CVSEntry* find(const char* path);

    bool frozen;
    int32_t read_time = 0;
    ut_string path;
    EntryMap entries;
};

// The images of CVS/Entries files a server keeps between requests, keyed by the full path of
// the Entries file in byte order. Images are made with `frozen` false, so each query notices a
// change on disk by itself; marking makes sure of it before the service's own cvs runs. The
// cache holds at most 21 images: before a new image goes into a cache that holds more than 20,
// the second image in key order is destroyed; the first in key order stays.
class EntriesCache {
public:
    EntriesCache() = default;
    EntriesCache(const EntriesCache&) = delete;
    EntriesCache& operator=(const EntriesCache&) = delete;

    // The image of `dir` joined with "CVS" and "Entries", made and read on a miss. Never null;
    // owned by the cache and valid until the cache discards it (a later miss may do so).
    CVSEntriesFile* entriesFor(const char* dir);
    // Marks the image of the directory part of `filename` stale (making it if needed). A name
    // without a directory part stands for a file of the current directory.
    void markFileStale(const char* filename);
    // Marks every image stale.
    void markAllStale();

private:
    std::map<MStringKey, std::unique_ptr<CVSEntriesFile>, MStringByteOrder> images;
    // The directory of the last entriesFor (null counts as empty) and the key it gave.
    std::string lastDir;
    bool lastDirValid = false;
    std::string lastKey;
};

// The full path of the Entries file of `dir`, as the cache keys it. A new string for gen_free.
char* entriesPathOf(const char* dir);

// The text of `dir`/CVS/Template, each line followed by "\n" (lines end at `\n`, `\r` or
// `\r\n`). Null when the file can't be opened; an empty file gives an empty string. A new
// string for gen_free.
char* readTemplate(const char* dir);
