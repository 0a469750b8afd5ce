// Throughput of virtual files against the two other streams a caller could
// use instead: a memory file on the heap and a native temporary file. Each
// writes a file of several megabytes in chunks, then reads it back.
#include <string>
#include <vector>

#include "Bench.h"
#include "basefile.h"
#include "filesystem.h"
#include "filemapping.h"
#include "memoryfile.h"

namespace {

using namespace Tsl;

const int32_t FileBytes = 32 * 1024 * 1024;

void WriteAll(CBaseFile& file, const std::vector<char>& chunk) {
  for (int32_t done = 0; done < FileBytes; done += int32_t(chunk.size()))
    file.Write(chunk.data(), int32_t(chunk.size()));
}

void ReadAll(CBaseFile& file, std::vector<char>& chunk) {
  file.SeekToBegin();
  int64_t sum = 0;
  while (int32_t got = file.Read(chunk.data(), int32_t(chunk.size()))) sum += got + chunk[0];
  Bench::Keep(sum);
}

// Write then read of one fresh file opened by `path`, each timed on its own.
void OnPath(const CUnicodeString& path, std::vector<char>& chunk, Bench::Timing& write, Bench::Timing& read) {
  write = Bench::Time([&] {
    CFile file(path, CFile::ModeCreate | CFile::ModeReadWrite | CFile::ShareExclusive);
    WriteAll(file, chunk);
  });
  read = Bench::Time([&] {
    CFile file(path, CFile::ModeRead | CFile::ShareDenyWrite);
    ReadAll(file, chunk);
  });
  GetFileSystem(path)->DeleteFile(path);
}

void OnMemory(std::vector<char>& chunk, Bench::Timing& write, Bench::Timing& read) {
  CMemoryFile* kept = nullptr;
  write = Bench::Time([&] {
    delete kept;
    kept = new CMemoryFile();
    WriteAll(*kept, chunk);
  });
  read = Bench::Time([&] { ReadAll(*kept, chunk); });
  delete kept;
}

// What one view costs on this platform: a virtual file maps one per granule
// it passes, so this bounds its sequential speed.
void NoteViewCost() {
  const int Views = 64;
  CMemoryMapping mapping(1, int64_t(Views) * GetAllocationGranularity());
  double seconds = Bench::Time([&] {
    for (int i = 0; i < Views; ++i)
      mapping.UnmapView(mapping.MapView(FILE_MAP_WRITE, int64_t(i) * GetAllocationGranularity(), 65536));
  }).median;
  Bench::Note("map and unmap of one view: " + std::to_string(seconds * 1e6 / Views) + " us");
  // The same with every page of the view touched once, as a copy does.
  double touched = Bench::Time([&] {
    int64_t sum = 0;
    for (int i = 0; i < Views; ++i) {
      char* view = static_cast<char*>(mapping.MapView(FILE_MAP_WRITE, int64_t(i) * GetAllocationGranularity(), 65536));
      for (int page = 0; page < 65536; page += 4096) sum += view[page];
      mapping.UnmapView(view);
    }
    Bench::Keep(sum);
  }).median;
  Bench::Note("map, touch every page and unmap of one view: " + std::to_string(touched * 1e6 / Views) + " us");
}

}  // namespace

BENCH(VirtualFile) {
  NoteViewCost();
  const CUnicodeString virtualPath = L"\\\\Tavix\\Tessels\\VirtualFiles$\\bench\\file.bin";
  const CUnicodeString nativePath = ConcatPath(GetSystemTempPath(), L"mirdal_virtualfile_bench.bin");
  for (int32_t chunkBytes : {4096, 65536}) {
    std::vector<char> chunk(size_t(chunkBytes), 'v');
    Bench::Timing virtualWrite, virtualRead, memoryWrite, memoryRead, nativeWrite, nativeRead;
    OnPath(virtualPath, chunk, virtualWrite, virtualRead);
    OnMemory(chunk, memoryWrite, memoryRead);
    OnPath(nativePath, chunk, nativeWrite, nativeRead);
    std::string what = std::to_string(FileBytes >> 20) + " MB in " + std::to_string(chunkBytes) + "-byte chunks";
    Bench::Report("write " + what + ", virtual / memory file", virtualWrite, memoryWrite, "<= 2.0");
    Bench::Report("read " + what + ", virtual / memory file", virtualRead, memoryRead, "<= 2.0");
    Bench::Report("write " + what + ", virtual / native temp file", virtualWrite, nativeWrite, "<= 1.0");
    Bench::Report("read " + what + ", virtual / native temp file", virtualRead, nativeRead, "<= 1.0");
  }
}
