// The temporary directory and names of temporary files that do not exist yet.
#pragma once

// The first accessible directory of: the variable "TMP", the variable "TEMP", `preferred`; else
// the system's temporary root (/tmp) when accessible, else ".". The answer is cached (owned by
// the library); a call with a non-null `preferred` looks again.
const char* gen_temp_dir(const char* preferred);

// The path of a file that does not exist in gen_temp_dir(preferred), owned by the caller. The
// name is "tq_" + the process id + a process-wide counter (both in base 32, digits
// "0-9a-v", no leading zeros) + "." + `extension` (a leading `.` of it dropped; with no
// extension there is no final `.` either). The counter rises before each try; past 0xFFFFF the
// search ends with null. When the variable "BUILDER_TEMPORARY_NAME" is set, its value is the
// name instead (with a `.` added at its end if it has none, then the extension).
char* gen_temp_name(const char* preferred, const char* extension);

// Creates a new file from `template`, which ends in six `X` and is changed in place: the last
// five become the low decimal digits of the thread id, the first the first letter 'a'..'z'
// that gives a name that does not exist. Opened for reading and writing, exclusive, mode 0600.
// The descriptor (close with plat_close), or -1 with errno set (EINVAL for a bad template,
// EEXIST when no letter is left).
int gen_make_temp(char* template_);
