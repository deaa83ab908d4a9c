// The temporary directory, and temporary files made under fresh names.
#pragma once

// The first accessible directory of: the variable "TMP", the variable "TEMP", `preferred`; else
// the system's temporary root (/tmp) when accessible, else ".". The answer is cached (owned by
// the library); a call with a non-null `preferred` looks again.
const char* gen_temp_dir(const char* preferred);

// The path of a new, empty file in gen_temp_dir(preferred), owned by the caller. The file is
// created at once, exclusively and with mode 0600, so that nobody can plant a file or a link
// under the name between this call and its use; the caller writes it and removes it. The
// name is "tq_" + the process id + a process-wide counter (both in base 32, digits
// "0-9a-v", no leading zeros) + "." + `extension` (a leading `.` of it dropped; with no
// extension there is no final `.` either). The counter rises before each try, and a name that
// exists is passed over; past 0xFFFFF, or when the directory refuses the file, the result is
// null with errno set.
// When the variable "BUILDER_TEMPORARY_NAME" is set, its value is the name instead (with a `.`
// added at its end if it has none, then the extension). The builder expects that very name, so
// whatever is there already (a file or a link, which is removed, never followed) gives way to
// the new file; null if it cannot.
char* gen_temp_name(const char* preferred, const char* extension);

// Creates a new file from `template`, which ends in six `X` and is changed in place: the last
// five become the low decimal digits of the thread id, the first the first letter 'a'..'z'
// under which the file can be created: opened for reading and writing, exclusive (a name that
// exists, a link included, is passed over), mode 0600.
// The descriptor (close with plat_close), or -1 with errno set (EINVAL for a bad template,
// EEXIST when no letter is left).
int gen_make_temp(char* template_);
