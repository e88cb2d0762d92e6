#include <vtcore/system/dispatch/dot_api.h>

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

struct PathInfo {
  const char* menuText;
  int interleave;
  int maxInterleave;
};

constexpr PathInfo kPaths[CDotAPI::kIDCount] = {
    {"SSE optimizations", 4, 4},
    {"SSE3 optimizations", 4, 4},
    {"SSE optimizations", 4, 4},
    {"AltiVec G4 optimizations", 4, 4},
    {"AltiVec G5 optimizations", 4, 4},
    {"optimizations off", 1, 1},
    {"debug mode", 4, 4},
};

void ensureInit() {
  if (!CDotAPI::s_fInit.load(kRelaxed))
    CDotAPI::Init();
}

void installMatrix(bool debug) {
  const auto& source = debug ? CDotAPI::s_afEnableDebug : CDotAPI::s_afEnableRelease;
  for (int row = 0; row < CDotAPI::kIDCount; ++row)
    for (int column = 0; column < CDotAPI::kIDCount; ++column)
      CDotAPI::s_afEnable[row][column].store(source[row][column], kRelaxed);
}

bool isEnabled(int row, int column) {
  return row >= 0 && row < CDotAPI::kIDCount && column >= 0 && column < CDotAPI::kIDCount &&
         CDotAPI::s_afEnable[row][column].load(kRelaxed);
}

// Walks the processor's row counting enabled columns from 0; yields the
// column at which the count reaches `index`, or -1 when it never does.
int columnOfMenuEntry(int index) {
  if (index < 0)
    return -1;
  const int row = CDotAPI::s_eID.load(kRelaxed);
  int count = 0;
  for (int column = 0; column < CDotAPI::kIDCount; ++column) {
    if (!isEnabled(row, column))
      continue;
    if (count == index)
      return column;
    ++count;
  }
  return -1;
}

} // namespace

std::atomic<bool> CDotAPI::s_bEnableHistoryUpdate{true};
std::atomic<bool> CDotAPI::s_fDbgMode{false};
std::atomic<bool> CDotAPI::s_fInit{false};
std::atomic<bool> CDotAPI::s_fOverride{false};
std::atomic<CDotAPI::EID> CDotAPI::s_eOverride{CDotAPI::kOptimizationsOff};
std::atomic<CDotAPI::EID> CDotAPI::s_eID{CDotAPI::kOptimizationsOff};
std::atomic<bool> CDotAPI::s_afEnable[kIDCount][kIDCount]{};

const bool CDotAPI::s_afEnableRelease[kIDCount][kIDCount] = {
    {1, 0, 0, 0, 0, 1, 0}, {0, 1, 0, 0, 0, 1, 0}, {0, 0, 1, 0, 0, 1, 0}, {0, 0, 0, 1, 0, 1, 0},
    {0, 0, 0, 0, 1, 1, 0}, {0, 0, 0, 0, 0, 1, 0}, {0, 0, 0, 0, 0, 1, 1},
};

const bool CDotAPI::s_afEnableDebug[kIDCount][kIDCount] = {
    {1, 0, 0, 0, 0, 1, 1}, {1, 1, 0, 0, 0, 1, 1}, {0, 0, 1, 0, 0, 1, 1}, {0, 0, 0, 1, 1, 1, 1},
    {0, 0, 0, 1, 1, 1, 1}, {0, 0, 0, 0, 1, 1, 1}, {0, 0, 0, 0, 1, 1, 1},
};

void CDotAPI::Init() {
  s_fInit.store(true, kRelaxed);
  installMatrix(s_fDbgMode.load(kRelaxed));
  // No detection is made: every processor is taken to run the SSE3 path.
  s_eID.store(kSSE3, kRelaxed);
}

CDotAPI::EID CDotAPI::ProcessorID() {
  ensureInit();
  return s_eID.load(kRelaxed);
}

CDotAPI::EID CDotAPI::ID() {
  ensureInit();
  return s_fOverride.load(kRelaxed) ? s_eOverride.load(kRelaxed) : s_eID.load(kRelaxed);
}

int CDotAPI::Interleave() {
  const int id = ID();
  return id >= 0 && id < kIDCount ? kPaths[id].interleave : 1;
}

int CDotAPI::MaxInterleave() {
  const int id = ProcessorID();
  return id >= 0 && id < kIDCount ? kPaths[id].maxInterleave : 1;
}

int CDotAPI::MenuEntries() {
  ensureInit();
  const int row = s_eID.load(kRelaxed);
  int count = 0;
  for (int column = 0; column < kIDCount; ++column)
    count += isEnabled(row, column) ? 1 : 0;
  return count;
}

const char* CDotAPI::MenuText(int index) {
  ensureInit();
  const int column = columnOfMenuEntry(index);
  return column < 0 ? nullptr : kPaths[column].menuText;
}

CDotAPI::EID CDotAPI::MenuID(int index) {
  ensureInit();
  // -1 is the menus' "no entry" index and maps to the all-bits-set path.
  if (index == -1)
    return static_cast<EID>(-1);
  const int column = columnOfMenuEntry(index);
  return column < 0 ? kSSE : static_cast<EID>(column);
}

bool CDotAPI::Override(EID id) {
  ensureInit();
  s_eOverride.store(id, kRelaxed);
  const EID own = s_eID.load(kRelaxed);
  const bool inForce = isEnabled(own, id) && id != own;
  s_fOverride.store(inForce, kRelaxed);
  return inForce;
}

void CDotAPI::SetSelection(int index) {
  // Even an ignored selection initialises, as every query does.
  ensureInit();
  if (index < 0)
    return;
  Override(MenuID(index));
}

int CDotAPI::GetSelection() {
  ensureInit();
  const EID wanted = s_fOverride.load(kRelaxed) ? s_eOverride.load(kRelaxed) : s_eID.load(kRelaxed);
  for (int index = 0; index < kIDCount; ++index)
    if (MenuID(index) == wanted)
      return index;
  return 0;
}

void CDotAPI::SetDebugMode(bool debug) {
  s_fDbgMode.store(debug, kRelaxed);
  installMatrix(debug);
}

bool CDotAPI::UpdateHistory() {
  return s_bEnableHistoryUpdate.load(kRelaxed);
}
void CDotAPI::EnableHistoryUpdate() {
  s_bEnableHistoryUpdate.store(true, kRelaxed);
}
void CDotAPI::DisableHistoryUpdate() {
  s_bEnableHistoryUpdate.store(false, kRelaxed);
}
