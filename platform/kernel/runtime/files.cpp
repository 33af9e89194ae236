// Files and streams. The library reads its cascade from memory and writes nothing, so whatever is
// asked for here fails or does nothing, as where there is no file and no console.
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

extern "C" {

struct File;

// A file that cannot be opened, by name, wide name or number; compressed ones likewise.
File* fopen(const char*, const char*) { return nullptr; }
File* _wfopen(const wchar_t*, const wchar_t*) { return nullptr; }
File* fdopen(int, const char*) { return nullptr; }
void* gzopen(const char*, const char*) { return nullptr; }
int remove(const char*) { return -1; }

// stdin, stdout and stderr, which only serve as arguments of the calls below.
File* __acrt_iob_func(unsigned) { return nullptr; }

// Nothing can be read ...
char* fgets(char*, int, File*) { return nullptr; }
int fgetc(File*) { return -1; }
int getc(File*) { return -1; }
int ungetc(int, File*) { return -1; }
uint16_t getwc(File*) { return 0xFFFF; }
uint16_t ungetwc(uint16_t, File*) { return 0xFFFF; }
size_t fread(void*, size_t, size_t, File*) { return 0; }
int read(int, void*, unsigned) { return -1; }
int feof(File*) { return 1; }
char* gzgets(void*, char*, int) { return nullptr; }
int gzeof(void*) { return 1; }

// ... or written, messages on the console included ...
int fputs(const char*, File*) { return -1; }
int fputc(int, File*) { return -1; }
int putc(int, File*) { return -1; }
uint16_t putwc(wchar_t, File*) { return 0xFFFF; }
size_t fwrite(const void*, size_t, size_t, File*) { return 0; }
int write(int, const void*, unsigned) { return -1; }
int gzputs(void*, const char*) { return -1; }
int __mingw_vfprintf(File*, const char*, va_list) { return -1; }

// ... and there is no position.
int fseek(File*, long, int) { return -1; }
long ftell(File*) { return -1; }
int fgetpos(File*, int64_t*) { return -1; }
int fsetpos(File*, const int64_t*) { return -1; }
int64_t _lseeki64(int, int64_t, int) { return -1; }
int64_t _filelengthi64(int) { return -1; }
int _fstat64(int, void*) { return -1; }
void rewind(File*) {}
int gzrewind(void*) { return -1; }

int fileno(File*) { return -1; }
int _fileno(File*) { return -1; }
int setvbuf(File*, char*, int, size_t) { return -1; }
int fflush(File*) { return 0; }
int fclose(File*) { return 0; }
int close(int) { return -1; }
int gzclose(void*) { return 0; }
void _lock_file(File*) {}
void _unlock_file(File*) {}
}
