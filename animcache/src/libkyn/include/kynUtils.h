// The file utilities, as free functions: each takes paths, prints its report or dump on the
// standard output and its errors on the standard error, and answers 0 on success and -1 on
// failure. The command-line programs of the same names call them.
#ifndef KYN_UTILS_H
#define KYN_UTILS_H

// Prints every chunk of a cache file, one line a chunk, indented by nesting.
int kyn2txt(const char* path);

// Writes a small fixed cache file through the low-level writer: two objects, one sample.
int kyntest(const char* path);

#endif
