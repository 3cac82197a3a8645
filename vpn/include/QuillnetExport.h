// SPDX-License-Identifier: Apache-2.0
#ifndef QUILLNET_EXPORT_H
#define QUILLNET_EXPORT_H

// QUILLNET_API marks the client interface: each class and function a client of the installed
// library may use carries it. The library is compiled with every other name hidden
// (-fvisibility=hidden, -fvisibility-inlines-hidden), so the shared library exports what is
// marked and nothing of its internals, and a client's own definition of a name the library uses
// inside cannot take the library's place. The archive's objects are the same ones: a client
// that links the archive into a shared object of its own exports none of its internals either.
//
//   class QUILLNET_API CStoragePath { ... };   // its out-of-line members, vtable and type info
//   QUILLNET_API const LocalPolicySettingInfo* FindLocalPolicySetting(std::string_view element);
//
// A class defined wholly in its header (XmlMgr, CManualLock) needs no mark: a client compiles
// its own copy. A declaration joins the client interface with the mark, its header in the
// installed list (QN_PUBLIC_HEADERS) and its symbols in debian/libquillnet-localpolicy1.symbols,
// which the consumer test compares with what the library exports.
#define QUILLNET_API __attribute__((visibility("default")))

#endif  // QUILLNET_EXPORT_H
