// The kernel requests of the daemon's calls. Ends the process when one fails.
#pragma once

enum { kVersion, kInfo, kHealth, kPower, kUserdata, kMetadata };

// Before the first call but kVersion. `disk` is a name below /sys/block.
void PrepareCalls(const char* disk);
void MakeRequests(int call);
