// SPDX-License-Identifier: Apache-2.0
// The policy record, the installer vocabulary and the settings catalogue: defaults, each
// setter reaching exactly its own getter, the exclude group masks, reset and copies; the
// vocabulary rows; the catalogue's agreement with the record. (How the caching options combine
// is checked through documents in policy_reader_test, how values are matched against a row
// through generation in policy_generation_test, the documented defaults against what the reader
// leaves in policy_documents_test.)
//
// Records are compared whole through qntest::summarize: "version length:version|a digit per
// flag of kPolicyFlags|caching text|tunnel option|exclude mask|servers".

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "LocalPolicySettings.h"
#include "PolicyModel.h"
#include "XmlLocalQNPolMgr.h"

namespace {

using qntest::I;
using qntest::kPolicyFlags;

// Nothing restricted, every kind of update allowed from any server.
const std::string kDefaults = "0:|0000000000001111111111|false|0|0";

// The manager's vocabulary, abbreviation to "element update-row allowed-values,".
std::map<std::string, std::string> vocabularyRows() {
    std::map<std::string, std::string> rows;
    for (const auto& [abbreviation, row] : XmlLocalQNPolMgr().GetPolicyTransTable()) {
        std::string& text = rows[abbreviation];
        text = row.tstrFullName + (row.bIsUpdatePolicy ? " 1 " : " 0 ");
        for (const std::string& value : row.listAllowedValues) {
            text += value + ",";
        }
    }
    return rows;
}

TEST(PolicyRecord, EachSetterChangesOnlyItsOwnGetterFromTheDefaults) {
    EXPECT_EQ(qntest::summarize(I()), kDefaults);
    for (size_t i = 0; i < std::size(kPolicyFlags); ++i) {
        I record;
        (record.*kPolicyFlags[i].set)(kDefaults[3 + i] == '0');
        std::string expected = kDefaults;
        expected[3 + i] = kDefaults[3 + i] == '0' ? '1' : '0';
        // A restricted server store reads as strict trust (flag 8): its '0' becomes '1'.
        expected[3 + 8] |= kPolicyFlags[i].get == &I::IsRestrictServerCertStore;
        EXPECT_EQ(qntest::summarize(record), expected) << kPolicyFlags[i].element;
    }
}

// Every single bit against every group getter, in kExcludedStores' order.
TEST(PolicyRecord, ExcludeGroupsTestAnyBitOfTheirMask) {
    using Group = bool (I::*)() const;
    const Group groups[] = {&I::ExcludeFirefoxNSSCertStores, &I::ExcludePemFileCertStores,
                            &I::ExcludeMacNativeCertStores, &I::ExcludeWinNativeCertStores};
    for (uint32_t bit = 1; bit != 0; bit <<= 1) {
        I record;
        record.ExcludeCertStores(bit);
        for (size_t g = 0; g < std::size(groups); ++g) {
            EXPECT_EQ((record.*groups[g])(), (qntest::kExcludedStores[g].mask & bit) != 0)
                << qntest::kExcludedStores[g].element << " bit 0x" << std::hex << bit;
        }
    }
}

// A record with every field changed from its default, and its summary.
I changedRecord() {
    I source;
    for (const qntest::PolicyFlag& flag : kPolicyFlags) {
        (source.*flag.set)(!(source.*flag.get)());
    }
    source.QNVersion("9.9");
    source.RestrictPrefCaching(RESTRICT_PREF_CACHING_ALL);
    for (const int outside : {-1, 6, 100}) {  // values outside the options change nothing
        source.RestrictPrefCaching(static_cast<RestrictPrefCachingOption>(outside));
    }
    source.RestrictTunnelProtocols(RESTRICT_TUNNEL_PROTOCOL_IPSEC);
    source.ExcludeCertStores(0x8);
    source.ExcludeCertStores(0xC00);  // masks accumulate
    source.AddToAuthorizedServerList("a-server-name-long-enough-for-the-heap");
    return source;
}
const std::string kChanged =
    "3:9.9|1111111111110000000000|false,All|2|3080|38:a-server-name-long-enough-for-the-heap";

// Copies and assignment (also to itself) take every field and share nothing with their
// source; reset restores every default.
TEST(PolicyRecord, CopiesTakeEveryFieldAndResetRestoresTheDefaults) {
    I source = changedRecord();
    ASSERT_EQ(qntest::summarize(source), kChanged);
    I copy(source);
    I assigned;
    assigned.AddToAuthorizedServerList("old");
    assigned = source;
    I& alias = assigned;
    assigned = alias;
    EXPECT_EQ(qntest::summarize(copy), kChanged);
    EXPECT_EQ(qntest::summarize(assigned), kChanged);
    copy.AddToAuthorizedServerList("added to the copy");
    assigned.Reset();
    EXPECT_EQ(qntest::summarize(assigned), kDefaults);
    EXPECT_EQ(qntest::summarize(source), kChanged);
}

// Each row as "element update-row allowed-values,". The on/off settings are the shared model's,
// listing "false,true," except that update permissions and the CRL check list "true" first.
TEST(PolicyVocabulary, HoldsTheInstallerRowsOfTheModel) {
    std::map<std::string, std::string> expected = {
        {"rpc", "RestrictPreferenceCaching 0 "},
        {"rtp", "RestrictTunnelProtocols 0 false,TLS,IPSec,"},
        {"upal", "AuthorizedServerList 1 "}};
    for (const qntest::PolicyFlag& flag : kPolicyFlags) {
        const bool bTrueFirst = flag.bUpdate || std::string(flag.abbreviation) == "ecc";
        expected[flag.abbreviation] = std::string(flag.element) + (flag.bUpdate ? " 1 " : " 0 ") +
                                      (bTrueFirst ? "true,false," : "false,true,");
    }
    for (const qntest::ExcludedStore& store : qntest::kExcludedStores) {
        expected[store.abbreviation] = std::string(store.element) + " 0 false,true,";
    }
    EXPECT_EQ(vocabularyRows(), expected);
}

// The accessors the reader calls are the record's own for that element (the shared model's),
// and an exclusion's mask is the group its getter tests.
TEST(SettingsCatalogue, RowsUseTheRecordAccessorsOfTheirElement) {
    for (const qntest::PolicyFlag& flag : kPolicyFlags) {
        const LocalPolicySettingInfo* row = FindLocalPolicySetting(flag.element);
        ASSERT_NE(row, nullptr) << flag.element;
        EXPECT_EQ(row->getter, flag.get) << flag.element;
        EXPECT_EQ(row->kind == LocalPolicySettingKind::UPDATE_PERMISSION, flag.bUpdate);
        if (row->kind != LocalPolicySettingKind::FIPS_MODE) {  // the loader sets FIPS mode
            EXPECT_EQ(row->setter, flag.set) << flag.element;
        }
    }
    for (const qntest::ExcludedStore& store : qntest::kExcludedStores) {
        const LocalPolicySettingInfo* row = FindLocalPolicySetting(store.element);
        ASSERT_NE(row, nullptr) << store.element;
        EXPECT_EQ(row->excludeMask, store.mask) << store.element;
        I record;
        record.ExcludeCertStores(row->excludeMask);
        EXPECT_TRUE((record.*row->getter)()) << store.element;
    }
}

}  // namespace
