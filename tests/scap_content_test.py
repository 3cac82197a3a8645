# SPDX-License-Identifier: Apache-2.0
"""qnpolicy scap checked by oscap itself.

oscap accepts the data stream; `oscap xccdf eval` gives, per rule, the verdict `comply` gives
(pass or fail) on a compliant file, on each drift case of the baseline tests and on list and
caching cases; every shape XPath cannot follow fails the plain-form rule; the tailoring deselects
a live waiver; a host without the install directory is not applicable. The HTML report of the
drifted file is kept in ARTIFACTS.

Usage: scap_content_test.py QNPOLICY ARTIFACTS
"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET
from pathlib import Path

QNPOLICY, ARTIFACTS = sys.argv[1], sys.argv[2]
XCCDF = '{http://checklists.nist.gov/xccdf/1.2}'
RULE = 'xccdf_com.quillnet_rule_'

# The README's example baseline as printed, its waiver kept live.
README = Path(__file__).resolve().parent.parent / 'README.md'
EXAMPLE = re.sub(r'expires: \S+', 'expires: 2999-03-31', re.search(
    r'^```yaml\n(version: 1\n.*?)^```$', README.read_text(encoding='utf-8'), re.S | re.M).group(1))
# Lists and caching options: equals keeps the order, the others compare sets.
LISTS = [
    'AuthorizedServerList: {equals: [b, a]}\n'
    '  RestrictPreferenceCaching: {superset_of: [Thumbprints]}',
    'AuthorizedServerList: {equals: [a, b]}\n'
    '  RestrictPreferenceCaching: {one_of: [none, Credentials]}',
    'AuthorizedServerList: {superset_of: [a, c]}\n'
    '  RestrictPreferenceCaching: {subset_of: [Thumbprints]}',
    'AuthorizedServerList: {subset_of: [a, b, "it\'s \\"q\\""]}\n'
    '  RestrictPreferenceCaching: Credentials,Thumbprints',
]


def policy(children):
    return '<QuillnetLocalPolicy>\n' + children + '\n</QuillnetLocalPolicy>\n'


UPDATE = ('<UpdatePolicy><AllowSoftwareUpdatesFromAnyServer>false'
          '</AllowSoftwareUpdatesFromAnyServer>{}</UpdatePolicy>')
COMPLIANT = policy(
    '<FipsMode>true</FipsMode><StrictCertificateTrust>true</StrictCertificateTrust>'
    '<RestrictTunnelProtocols>ipsec</RestrictTunnelProtocols>' + UPDATE.format(
        '<AuthorizedServerList><ServerName>gw2.example.com</ServerName>'
        '</AuthorizedServerList>'))
DRIFTS = {
    'compliant': COMPLIANT,
    'no file': None,
    'duplicated FIPS mode off, TLS not applied, a rogue server': policy(
        '<FipsMode>true</FipsMode>\n<FipsMode>false</FipsMode>\n'
        '<RestrictServerCertStore>true</RestrictServerCertStore>\n'
        '<RestrictTunnelProtocols>TLS</RestrictTunnelProtocols>\n' + UPDATE.format(
            '<AuthorizedServerList><ServerName>gw1.example.com</ServerName>\n'
            '<ServerName>rogue.example.net</ServerName></AuthorizedServerList>')),
    'strict trust off': policy(
        '<FipsMode>true</FipsMode><StrictCertificateTrust>false</StrictCertificateTrust>'
        '<RestrictTunnelProtocols>tls</RestrictTunnelProtocols>' + UPDATE.format('')),
    'texts taken exactly, an empty element changes nothing': policy(
        '<FipsMode>True</FipsMode><StrictCertificateTrust>true</StrictCertificateTrust>'
        '<StrictCertificateTrust/><RestrictTunnelProtocols>ipsec</RestrictTunnelProtocols>'
        '<RestrictTunnelProtocols>IPSec</RestrictTunnelProtocols>'
        '<UpdatePolicy/>' + UPDATE.format('<AuthorizedServerList><ServerName> gw1.example.com'
                                          '</ServerName><ServerName/></AuthorizedServerList>')
        + '<UpdatePolicy><AllowSoftwareUpdatesFromAnyServer>true'
        '</AllowSoftwareUpdatesFromAnyServer></UpdatePolicy>'),
    'a default namespace, a comment in a value': policy(
        '<FipsMode xmlns="urn:other">tr<!-- x -->ue</FipsMode>'
        '<StrictCertificateTrust><![CDATA[true]]></StrictCertificateTrust>'),
}
LIST_FILES = {
    'servers b, a; caching in any order': policy(
        UPDATE.format('<AuthorizedServerList><ServerName>b</ServerName></AuthorizedServerList>'
                      '<AuthorizedServerList><ServerName>a</ServerName>'
                      '</AuthorizedServerList>') +
        '<RestrictPreferenceCaching>Thumbprints,Credentials</RestrictPreferenceCaching>'),
    'an unknown caching option clears the list': policy(
        '<RestrictPreferenceCaching>Credentials, Thumbprints</RestrictPreferenceCaching>'),
    'a quoted server': policy(UPDATE.format(
        '<AuthorizedServerList><ServerName>it\'s "q"</ServerName></AuthorizedServerList>')),
}
SHAPES = {
    'a prefixed element': policy('<q:FipsMode xmlns:q="urn:q">true</q:FipsMode>'),
    'a setting under an unknown element': policy('<Extra><FipsMode>true</FipsMode></Extra>'),
    'another root': '<Policy><FipsMode>true</FipsMode></Policy>\n',
    'a nested section': policy('<UpdatePolicy><UpdatePolicy/>'
                               '<AllowSoftwareUpdatesFromAnyServer>false'
                               '</AllowSoftwareUpdatesFromAnyServer></UpdatePolicy>'),
    'several caching lists': policy('<RestrictPreferenceCaching>Credentials'
                                    '</RestrictPreferenceCaching><RestrictPreferenceCaching>'
                                    'Thumbprints</RestrictPreferenceCaching>'),
    'a DOCTYPE': '<!DOCTYPE QuillnetLocalPolicy>\n' + COMPLIANT,
    'a file cut short': '<QuillnetLocalPolicy><FipsMode>true</Fips',
    'a setting with a child element': policy('<FipsMode>true<Extra/></FipsMode>'),
}
# XPath cannot read it and no pattern shows it: an error, which counts as not compliant.
MISMATCHED = policy('<FipsMode>true</StrictCertificateTrust>')


def run(args, ok=(0,)):
    result = subprocess.run(args, capture_output=True, text=True, check=False)
    if result.returncode not in ok:
        raise AssertionError('%s exited %d: %s' % (args, result.returncode, result.stderr))
    return result


class Case:
    """One install directory with its content, and the verdicts of comply and oscap there."""

    def __init__(self, root, baseline, document):
        self.dir = tempfile.mkdtemp(dir=root)
        self.baseline = os.path.join(self.dir, 'baseline.yml')
        Path(self.baseline).write_text(baseline, encoding='utf-8')
        if document is not None:
            Path(self.dir, 'QuillnetLocalPolicy.xml').write_text(document, encoding='utf-8')
        self.content = self.scap([], 'ds.xml')

    def scap(self, options, name):
        path = os.path.join(self.dir, name)
        Path(path).write_text(run([QNPOLICY, '--install-dir', self.dir, 'scap', '--baseline',
                                   self.baseline] + options).stdout, encoding='utf-8')
        return path

    def comply(self):
        """Each setting rule's state."""
        result = run([QNPOLICY, '--install-dir', self.dir, 'comply', '--json', '--host', 'web-1',
                      '--baseline', self.baseline], ok=(0, 1))
        report = json.loads(result.stdout)['files'][0]
        return {v['rule']: v['state'] for v in report['verdicts'] if v['rule'] != 'file-safety'}

    def oscap(self, options=(), report=None):
        results = self.content + '.results.xml'
        run(['oscap', 'xccdf', 'eval', '--results', results] + list(options) +
            (['--report', report] if report else []) + [self.content], ok=(0, 2))
        return {r.get('idref')[len(RULE):]: r.find(XCCDF + 'result').text
                for r in ET.parse(results).iter(XCCDF + 'rule-result')}


def main():
    checks = []  # (what, actual, expected)
    os.makedirs(ARTIFACTS, exist_ok=True)
    root = tempfile.mkdtemp(prefix='scap-test-', dir=ARTIFACTS)
    try:
        cases = [(name, EXAMPLE, doc) for name, doc in DRIFTS.items()]
        for i, rules in enumerate(LISTS):
            cases += [('%s / lists %d' % (name, i), 'version: 1\nsettings:\n  %s\n' % rules, doc)
                      for name, doc in LIST_FILES.items()]
        for name, baseline, document in cases:
            case = Case(root, baseline, document)
            report = os.path.join(ARTIFACTS, 'scap-report.html') if 'rogue' in name else None
            checks.append((name + ': oscap, then comply', case.oscap(report=report),
                           dict(case.comply(), **{'plain-form': 'pass'})))
        for name, document in SHAPES.items():
            checks.append((name + ': the plain-form rule',
                           Case(root, EXAMPLE, document).oscap().get('plain-form'), 'fail'))
        mismatched = Case(root, EXAMPLE, MISMATCHED).oscap()
        checks.append(('a mismatched end tag', set(mismatched.values()), {'error'}))

        case = Case(root, EXAMPLE, DRIFTS['strict trust off'])
        for args in (['ds', 'sds-validate'], ['xccdf', 'validate']):
            run(['oscap'] + args + [case.content])
        tailoring = case.scap(['--tailoring', '--host', 'lab-7'], 'tailoring.xml')
        # oscap has no schematron rules for a tailoring file: its XML Schema only.
        run(['oscap', 'xccdf', 'validate', '--skip-schematron', tailoring])
        tailored = case.oscap(['--tailoring-file', tailoring, '--profile',
                               'xccdf_com.quillnet_profile_baseline_waived'])
        checks.append(('the tailored waiver',
                       (tailored['StrictCertificateTrust'], tailored['FipsMode']),
                       ('notselected', 'pass')))
        case.content = shutil.copy(case.content, root)
        shutil.rmtree(case.dir)
        checks.append(('no install directory', set(case.oscap().values()), {'notapplicable'}))
    finally:
        shutil.rmtree(root)
    failures = [check for check in checks if check[1] != check[2]]
    for what, actual, expected in failures:
        print('FAIL %s: %s, expected %s' % (what, actual, expected))
    print('%d passed, %d failed' % (len(checks) - len(failures), len(failures)))
    return 1 if failures else 0


if __name__ == '__main__':
    sys.exit(main())
