#pragma once

/// While set, no file system of this process knows files without a name.
extern bool refuseFilesWithoutName;
