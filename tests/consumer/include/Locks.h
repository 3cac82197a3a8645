// SPDX-License-Identifier: Apache-2.0
// A client's own header that happens to share a name with one of the library's, guarded the way
// a generic name invites. The library's headers must neither be hidden by it nor hide it.
#ifndef LOCKS_H
#define LOCKS_H

// The client's own lock: nothing like the library's CManualLock.
struct ClientLock {
    int holders = 0;
};

#endif  // LOCKS_H
