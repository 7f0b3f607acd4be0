// The file utilities, as free functions: each takes paths, prints its report or dump on the
// standard output and its errors on the standard error, and answers 0 on success and -1 on
// failure (kyndiff answers the result of the diff command instead of 0). The command-line
// programs of the same names call them. They keep no state but kyndiff's two temporary files,
// so two runs of kyndiff at the same time disturb one another.
#ifndef KYN_UTILS_H
#define KYN_UTILS_H

// Prints a summary of a cache file: the file-wide values, then each object's name, kind and
// dynamic attributes, taken from the first sample.
int kyninfo(const char* fileName);

// Prints every chunk of a cache file, one line a chunk, indented by nesting.
int kyn2txt(const char* path);

// Compares two cache files by their flat text dumps, with the creation date blanked, written to
// "/disk1/tmp" (which must exist) and handed to the system's diff with `options` (may be null).
// Answers the result of system() for diff (0 when equal), or -1 on a failure of its own.
int kyndiff(const char* file1, const char* file2, const char* options);

// Writes a small fixed cache file through the low-level writer: two objects, one sample.
int kyntest(const char* path);

#endif
