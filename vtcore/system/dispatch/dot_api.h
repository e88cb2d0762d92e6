// CDotAPI: which optimised code path the signal processing uses, as offered
// to the user in a menu.
#pragma once

#include <vtcore/export.h>

#include <atomic>

/// Class-wide code-path settings (no instances). The processor's own path
/// is always 1 ("SSE3 optimizations"); the enable matrix in force (release
/// or debug configuration) says which paths may be offered on it, and the
/// menu lists those in path order. Every query except the history functions
/// and SetDebugMode first initialises the class when that has not happened.
/// No locking: the state is single words read and written unsynchronised.
class VTCORE_EXPORT CDotAPI {
public:
  /// A code-path identifier, 0 to 6.
  enum EID : int {
    kSSE = 0,
    kSSE3 = 1,
    kSSEAlternate = 2,
    kAltiVecG4 = 3,
    kAltiVecG5 = 4,
    kOptimizationsOff = 5,
    kDebugMode = 6,
  };
  /// The number of code paths (the size of each side of the matrix).
  static constexpr int kIDCount = 7;

  CDotAPI() = delete;

  /// Marks the class initialised, puts the matrix of the current
  /// configuration in force and sets the processor's path to 1.
  static void Init();
  /// The processor's own path.
  static EID ProcessorID();
  /// The overriding path while an override is in force, else ProcessorID().
  static EID ID();
  /// The interleave factor of ID() (1 for "optimizations off", else 4).
  static int Interleave();
  /// The largest interleave of the processor's own path (ignores the
  /// override).
  static int MaxInterleave();
  /// The number of menu entries: the paths enabled for the processor's path.
  static int MenuEntries();
  /// The text of menu entry `index`; null for a negative index or one past
  /// the entries.
  static const char* MenuText(int index);
  /// The path of menu entry `index`; 0 when there is no such entry, and
  /// EID(-1) (all bits set) for `index` -1.
  static EID MenuID(int index);
  /// Asks for path `id`: an override is in force afterwards only when `id`
  /// is enabled for the processor's path and differs from it; returns whether
  /// it is. `id` is remembered either way. Requires 0 <= id <= 6.
  static bool Override(EID id);
  /// Initialises like every query, then Override(MenuID(index)); a negative
  /// index changes nothing else.
  static void SetSelection(int index);
  /// The menu index of the path in force (the override's, else the
  /// processor's); 0 when it is not in the menu.
  static int GetSelection();
  /// Chooses the debug (true) or release configuration and puts its matrix
  /// in force at once; does not initialise the class.
  static void SetDebugMode(bool debug);
  /// Whether history is to be updated (true at start).
  static bool UpdateHistory();
  /// Switches history updates on or off (UpdateHistory()).
  ///@{
  static void EnableHistoryUpdate();
  static void DisableHistoryUpdate();
  ///@}

  ///@{
  /// Class-wide state, public so that hosts and tests can inspect it; use
  /// the functions above to change it: history updates on, debug
  /// configuration chosen, class initialised, override in force, the
  /// overriding path, the processor's path.
  static std::atomic<bool> s_bEnableHistoryUpdate;
  static std::atomic<bool> s_fDbgMode;
  static std::atomic<bool> s_fInit;
  static std::atomic<bool> s_fOverride;
  static std::atomic<EID> s_eOverride;
  static std::atomic<EID> s_eID;
  ///@}
  /// The matrix in force: row = processor path, column = path offered.
  static std::atomic<bool> s_afEnable[kIDCount][kIDCount];
  /// Release configuration: a processor offers its own path and
  /// "optimizations off".
  static const bool s_afEnableRelease[kIDCount][kIDCount];
  /// Debug configuration: adds "debug mode" and neighbouring paths.
  static const bool s_afEnableDebug[kIDCount][kIDCount];
};
