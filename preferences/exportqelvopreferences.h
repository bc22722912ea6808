#pragma once

#include <string>

#include "torvex_export.h"

namespace ZR {
class ZRValue;
}

/// Copies the preferences of one device or sub-device into a tree of framework
/// values and has the preferences service write it to a file. Construction is
/// the whole export; the object is of no further use.
///
/// The root of the tree is an array with an entry for each key, in the order of
/// the device pool's table. An entry is an array of four: "Key1", "Key2" and so on;
/// the empty string; the value; and the key, which is the preference's stored name
/// less its first character. Of equal keys the later value wins, in the place and
/// with the label of the first. Types 1 to 6 become integers, 7 a float, 8 a string,
/// 9 a string less its first character, all others an invalid value, which has an
/// entry too.
///
/// Any thread, no lock: the host keeps the preferences stable meanwhile. Not for
/// the control cycle. The search for a key is linear, so time grows with the
/// square of the number of preferences.
class TORVEX_EXPORT ExportQelvoPreferences {
 public:
  /// Exports the preferences in use whose owner is named `containerName`, case
  /// and all, to the preference file `fileName`. When there are none, nothing is
  /// written and the service is not asked for.
  ///
  /// The broker must be registered. Lets through what the broker, the service and
  /// values throw, and `std::bad_alloc`.
  ExportQelvoPreferences(const char* containerName, const char* fileName);

  /// Fills `tree`, whatever it was, with the tree of that container; it is left
  /// invalid when there is nothing to export.
  void createZRValueFromPreference(const char* containerName, ZR::ZRValue& tree);

  /// Puts a key and its value into `tree`, which begins as an empty array with the
  /// first key of this object, and whenever it is invalid. The result is 1, or -1
  /// when the tree is no array; nothing has then changed. Entries of another shape
  /// than described above make the values throw.
  int xAddAKey(std::string key, ZR::ZRValue& value, ZR::ZRValue& tree);

  /// Writes a tree through the preferences service of the registered broker.
  void writeQelvoPreferenceFile(ZR::ZRValue& tree, const char* fileName);

  /// True once a key was added.
  bool keyAdded = false;
};
