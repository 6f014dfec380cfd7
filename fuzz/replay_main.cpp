// Runs a fuzz target's entry function over files and folders of inputs, without libFuzzer: the
// corpus and the regression inputs of every crash found replay in the ordinary test run.
#include <dirent.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

long run_file(const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return 0;
  std::vector<uint8_t> data;
  uint8_t buf[65536];
  for (size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;) data.insert(data.end(), buf, buf + n);
  std::fclose(f);
  LLVMFuzzerTestOneInput(data.data(), data.size());
  return 1;
}

long run(const std::string& path) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return 0;
  if (!S_ISDIR(st.st_mode)) return run_file(path);
  long count = 0;
  if (DIR* d = opendir(path.c_str())) {
    while (dirent* e = readdir(d))
      if (e->d_name[0] != '.') count += run(path + "/" + e->d_name);
    closedir(d);
  }
  return count;
}

}  // namespace

int main(int argc, char** argv) {
  long count = 0;
  for (int i = 1; i < argc; ++i) count += run(argv[i]);
  std::printf("%ld inputs replayed\n", count);
  return count > 0 ? 0 : 1;
}
