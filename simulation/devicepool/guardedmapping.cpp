#include "simulation/devicepool/guardedmapping.h"

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <mutex>
#include <system_error>

namespace simulation {

/// What the handler knows of a mapping. There are as many records as were ever needed at once. They
/// are never freed, since a handler may read them at any time.
struct MappingGuard {
  std::atomic<char*> begin{nullptr};
  std::atomic<std::size_t> size{0};
  std::atomic<bool> isCut{false};
  MappingGuard* next = nullptr;
};

namespace {

std::atomic<MappingGuard*> gGuards{nullptr};
std::mutex gGuardsMutex;
struct sigaction gPrevious {};

/// Replaces the mapping from this address on by zeros; false when the address is in no guarded
/// mapping.
bool replaceMissing(const char* address) {
  for (MappingGuard* guard = gGuards; guard != nullptr; guard = guard->next) {
    char* const begin = guard->begin;
    const std::size_t size = guard->size;
    if (begin == nullptr || address < begin || address >= begin + size) {
      continue;
    }
    guard->isCut = true;
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t missing = static_cast<std::size_t>(address - begin) / page * page;
    return mmap(begin + missing, size - missing, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED,
                -1, 0) != MAP_FAILED;
  }
  return false;
}

void onBusError(int /*signal*/, siginfo_t* info, void* /*context*/) {
  const int before = errno;
  if (!replaceMissing(static_cast<const char*>(info->si_addr))) {
    sigaction(SIGBUS, &gPrevious, nullptr);  // the access is tried again, and met by that one
  }
  errno = before;
}

void installHandler() {
  struct sigaction action {};
  action.sa_sigaction = onBusError;
  action.sa_flags = SA_SIGINFO;
  sigemptyset(&action.sa_mask);
  sigaction(SIGBUS, &action, &gPrevious);
}

MappingGuard& freeGuard() {
  const std::lock_guard hold(gGuardsMutex);
  static const bool installed = (installHandler(), true);
  (void)installed;
  MappingGuard* guard = gGuards;
  while (guard != nullptr && guard->size != 0) {
    guard = guard->next;
  }
  if (guard == nullptr) {
    guard = new MappingGuard;
    guard->next = gGuards;
    gGuards = guard;
  }
  guard->size = 1;
  guard->isCut = false;
  return *guard;
}

}  // namespace

Mapping::Mapping(int descriptor, std::size_t size, bool forWriting) : size_(size) {
  address_ = mmap(nullptr, size, PROT_READ | (forWriting ? PROT_WRITE : 0),
                  MAP_SHARED | (descriptor < 0 ? MAP_ANONYMOUS : 0), descriptor, 0);
  if (address_ == MAP_FAILED) {
    address_ = nullptr;
    throw std::system_error(errno, std::generic_category(), "a device pool's memory");
  }
}

Mapping::~Mapping() {
  if (address_ != nullptr) {
    munmap(address_, size_);
  }
}

GuardedMapping::GuardedMapping(int descriptor, std::size_t size)
    : mapping_(descriptor, size, false), guard_(freeGuard()) {
  guard_.size = size;
  guard_.begin = static_cast<char*>(mapping_.address());
}

GuardedMapping::~GuardedMapping() {
  guard_.begin = nullptr;
  guard_.size = 0;
}

bool GuardedMapping::isCut() const noexcept {
  return guard_.isCut;
}

}  // namespace simulation
