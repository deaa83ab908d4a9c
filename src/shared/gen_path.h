// Paths as text. Input may use both separators, `/` and `\`, and a `:` also ends a component,
// since paths come from Windows peers as well; `//server` starts and drive letters are kept.
// Paths that the functions build use the library's path separator, `/` unless set otherwise.
// Returned strings are owned by the caller (release with gen_free) unless said otherwise.
#pragma once

// The separator of built paths, `/` at start. Only `/` and `\` are accepted; false otherwise.
bool gen_set_path_separator(char separator);
char gen_path_separator();

// POSIX paths, off at start. When on, only `/` separates components: `\` and `:` are bytes of
// a name, there are no drive letters, and only a path that begins with `/` is absolute. A
// process whose peers send paths of this system turns it on, so that a file name such as
// `a\b` or `x:y` names one file instead of a path. Paths built while it is on use `/`.
void gen_set_posix_paths(bool on);
bool gen_posix_paths();
// Whether `c` separates components under the rules in force (`/`, and `\` unless POSIX paths
// are on).
bool gen_is_path_separator(char c);

// Pointer into `path` behind the last separator or `:`; all of `path` if there is none; null
// for null.
const char* gen_basename(const char* path);
// The text before the last separator or `:`. That separator stays when it is the first byte or
// follows a `:`, and a `:` always stays ("c:\x" gives "c:\", "\x" gives "\", "c:x" gives
// "c:"). Null when there is no separator, or for null.
char* gen_dirname(const char* path);
// Begins with `/`, `\` or `~`, or has a `:` as its second byte (with POSIX paths: begins with
// `/`). False for null or empty.
bool gen_is_absolute(const char* path);

// Normalises in place: separators to `/`; a `//server` start kept and a drive letter made upper
// case; repeated separators collapsed, `.` components removed, a component and a following
// `..` removed together (a leading `..` stays); a final separator the input had stays, one
// left behind by removals goes; a relative path that loses every component becomes "."; at
// the end `/` becomes the path separator. The result is never longer than the input.
void gen_path_normalise(char* path);
// `dir` and `name` with the path separator between them (none if `dir` ends in a separator or
// `:`), normalised; an empty or null side gives a plain copy of the other, and an absolute
// `name` a plain copy of it. An empty result is ".". Null only when both are null.
char* gen_path_join(const char* dir, const char* name);
char* gen_path_join3(const char* dir, const char* a, const char* b);
// Empty: an empty string; absolute: a normalised copy; otherwise joined to gen_getcwd().
// Null for null.
char* gen_abspath(const char* path);

// Pointer behind the last `.` of the last component, or null. A shared-library name with a
// version ("x.so.1.2", "x.sa.3") gives the constant "so" or "sa" (not a pointer into `path`).
const char* gen_extension(const char* path);
// gen_extension(path) equals `ext` ignoring case, `ext` may start with a `.`; a null `ext`
// asks whether there is an extension at all.
bool gen_has_extension(const char* path, const char* ext);
// A copy with the last extension replaced by `ext` (a leading `.` of `ext` is allowed), or
// added if there is none; a null `ext` cuts the extension and its `.` off.
char* gen_set_extension(const char* path, const char* ext);
// `path` and `ext` joined by exactly one `.`.
char* gen_add_extension(const char* path, const char* ext);

// The current directory, from a cache (owned by the library, valid until the next
// gen_chdir). When the system can't tell, the user's home; with none, the process ends through
// gen_fatal(1, "Could not get current working directory.").
const char* gen_getcwd();
// Changes directory (through V_chdir) and empties the cache. 0 or -1.
int gen_chdir(const char* path);
