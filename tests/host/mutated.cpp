// Feeds a fuzz target without libFuzzer: mutated_TARGET FOLDER COUNT [SEED] takes the files of the
// folder, and then COUNT mutations of them. What ends it is left in mutated_TARGET.input.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

class Mutator {
 public:
  Mutator(std::vector<std::string> corpus, unsigned seed)
      : corpus_(std::move(corpus)), random_(seed) {}

  std::string next() {
    std::string input = corpus_[draw(corpus_.size())];
    for (std::size_t changes = 1 + draw(4); changes > 0; --changes) {
      change(input);
    }
    return input;
  }

 private:
  std::size_t draw(std::size_t count) { return random_() % count; }

  void change(std::string& input) {
    static const std::string parts[] = {"\xff", {'\0'}, "\"", "{", "]", ",", "-1", "1e999", "\r\n"};
    const std::size_t begin = draw(input.size() + 1);
    const std::size_t length = draw(input.size() - begin + 1);
    switch (draw(5)) {
      case 0:
        input.replace(begin, length > 0 ? 1 : 0, 1, static_cast<char>(draw(256)));
        break;
      case 1:
        input.erase(begin, length);
        break;
      case 2:
        input.insert(begin, input.substr(begin, length));
        break;
      case 3:
        input.insert(begin, parts[draw(std::size(parts))]);
        break;
      default:
        const std::string& other = corpus_[draw(corpus_.size())];
        input.replace(begin, length, other, draw(other.size() + 1));
    }
  }

  const std::vector<std::string> corpus_;
  std::mt19937 random_;
};

std::vector<std::string> filesIn(const std::string& folder) {
  std::vector<std::string> paths, texts;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    paths.push_back(entry.path().string());
  }
  std::sort(paths.begin(), paths.end());
  for (const std::string& path : paths) {
    std::ifstream file(path, std::ios::binary);
    texts.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return texts;
}

std::string current, keptPath;

/// Leaves the input that ends the process.
void keep(int signal) {
  const int file = open(keptPath.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0644);
  (void)!write(file, current.data(), current.size());
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s FOLDER COUNT [SEED]\n", argv[0]);
    return 2;
  }
  const std::vector<std::string> corpus = filesIn(argv[1]);
  keptPath = std::filesystem::path(argv[0]).filename().string() + ".input";
  for (const int signal : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL}) {
    std::signal(signal, keep);
  }
  const auto feed = [](const std::string& input) {
    current = input;
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
  };
  for (const std::string& input : corpus) {
    feed(input);
  }
  Mutator mutator(corpus, argc > 3 ? static_cast<unsigned>(std::stoul(argv[3])) : 1);
  for (unsigned long count = std::stoul(argv[2]); count > 0; --count) {
    feed(mutator.next());
  }
  return 0;
}
