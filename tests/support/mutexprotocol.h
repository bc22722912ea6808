#pragma once

/// What the latest mutex of the program was made with. The program has mutexprotocol.cpp
/// among its sources, which takes the place of the system's own.
extern int latestProtocol;
