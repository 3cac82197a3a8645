# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see LICENSE or https://www.gnu.org/licenses/gpl-3.0.txt)
# SPDX-License-Identifier: GPL-3.0-or-later
"""A fleet's compliance report from each host's local_policy_info result.

build_report() sorts every host into compliant, not compliant or unreadable (a host that could
not be judged: unreachable, without the client, with an install directory that is missing or
that others can change, with a policy the client cannot parse), never dropping one, and keeps
for each host that is not compliant the expected and actual values of each failing rule with
the element they come from. render_html() writes it as one self-contained page: no script, no
external style, font or image, and a Content-Security-Policy that forbids loading any.
"""

from __future__ import absolute_import, division, print_function
__metaclass__ = type

import html

FORMAT_VERSION = 1

COMPLIANT = 'compliant'
NOT_COMPLIANT = 'not-compliant'
UNREADABLE = 'unreadable'

# Why a host could not be judged, for readers.
REASONS = {
    'unreachable': 'unreachable',
    'no-qnpolicy': 'no client (qnpolicy is not installed)',
    'no-such-directory': 'no install directory',
    'unsafe': 'unsafe: others can change the policy file',
    'unreadable': 'the client cannot parse the policy file',
    'refused': 'the baseline was refused',
    'failed': 'the check failed',
}

STYLE = """
body{font:14px/1.4 sans-serif;margin:1.5em;color:#222}
h1{font-size:1.4em}h2{font-size:1.15em;margin-top:1.6em}
table{border-collapse:collapse;margin:.5em 0}
th,td{border:1px solid #bbb;padding:2px 6px;text-align:left;vertical-align:top}
th{background:#eee;white-space:nowrap}
.pass{background:#dff0d8}.fail{background:#f2dede;font-weight:bold}.waived{background:#fcf8e3}
.none{background:#f5f5f5;color:#777}
.totals td{font-size:1.2em;text-align:right}
td.c{text-align:center}
code{font-family:monospace}
"""

CELL = {'pass': ('pass', '\u2713'), 'fail': ('fail', '\u2717 fail'), 'waived': ('waived', 'waived')}


def _reason_of(result):
    """Why a registered result judges nothing, or None when it holds verdicts."""
    if not result:
        return 'failed', 'no result: the host left the play before it was judged'
    if result.get('unreachable'):
        return 'unreachable', result.get('msg', 'unreachable')
    compliance = result.get('compliance')
    if not compliance:
        # A host without the client (result not-installed) or a failed task (registered with
        # failed_when false, or not) says why in its error's kind.
        error = result.get('error') or {}
        kind = error.get('kind')
        return ((kind if kind in REASONS else 'failed'),
                result.get('msg') or error.get('message') or 'the result holds no verdicts')
    if compliance.get('result') == UNREADABLE:
        return 'unreadable', (compliance.get('error') or {}).get('message', 'cannot be parsed')
    for verdict in compliance.get('verdicts', []):
        if verdict.get('rule') == 'file-safety' and verdict.get('state') == 'fail':
            messages = [finding.get('message', '') for finding in verdict.get('findings', [])]
            return 'unsafe', '; '.join(messages) or 'the path audit failed'
    return None, None


def _position(file_name, origin):
    if not origin:
        return 'default'
    return '%s:%d:%d' % (file_name, origin['line'], origin['column'])


def _failure(verdict, file_name):
    failure = dict(rule=verdict['rule'], severity=verdict.get('severity', 'medium'),
                   expected=verdict.get('expected'), comparison=verdict.get('comparison'),
                   actual=verdict.get('actual'), origin=_position(file_name, verdict.get('origin')))
    if verdict.get('offending'):
        failure['offending'] = [dict(value=entry['value'], origin=_position(file_name, entry.get('origin')),
                                     missing=entry.get('missing', False)) for entry in verdict['offending']]
    if verdict.get('findings'):
        failure['findings'] = [finding.get('message', '') for finding in verdict['findings']]
    return failure


def judge_host(host, result):
    """One host's entry of the report."""
    reason, message = _reason_of(result)
    compliance = (result or {}).get('compliance') or {}
    verdicts = compliance.get('verdicts', [])
    entry = dict(host=host, states=dict((verdict['rule'], verdict['state']) for verdict in verdicts))
    if reason is not None:
        entry.update(status=UNREADABLE, reason=reason, message=message)
    else:
        entry['status'] = COMPLIANT if compliance.get('compliant') else NOT_COMPLIANT
    entry['failures'] = [_failure(verdict, compliance.get('file', '')) for verdict in verdicts
                         if verdict['state'] == 'fail']
    entry['waived'] = [dict(rule=verdict['rule'], reason=verdict['waiver']['reason'],
                            expires=verdict['waiver']['expires'])
                       for verdict in verdicts if verdict['state'] == 'waived' and verdict.get('waiver')]
    return entry


def _rules(entries):
    """The rules in the order the verdicts give them (file-safety first)."""
    rules = []
    for entry in entries:
        for rule in entry['states']:
            if rule not in rules:
                rules.append(rule)
    return rules


def build_report(results, baseline_name='', generated=''):
    """The report of a fleet: results maps each host to its registered local_policy_info result
    (empty or None for a host that has none); every host is in it."""
    entries = [judge_host(host, results[host]) for host in sorted(results)]
    order = {NOT_COMPLIANT: 0, UNREADABLE: 1, COMPLIANT: 2}
    entries.sort(key=lambda entry: (order[entry['status']], entry['host']))
    counts = dict((status, sum(1 for entry in entries if entry['status'] == status))
                  for status in (COMPLIANT, NOT_COMPLIANT, UNREADABLE))
    totals = dict(hosts=len(entries), compliant=counts[COMPLIANT], not_compliant=counts[NOT_COMPLIANT],
                  unreadable=counts[UNREADABLE])
    return dict(formatVersion=FORMAT_VERSION, baseline=baseline_name, generated=generated, totals=totals,
                rules=_rules(entries), hosts=entries)


def _text(value):
    if isinstance(value, bool):
        return 'true' if value else 'false'
    if isinstance(value, list):
        return '[%s]' % ', '.join(_text(item) for item in value)
    if value is None:
        return ''
    return str(value)


def _expected_text(failure):
    expected = failure.get('expected')
    if expected is None:
        return 'safe'
    comparison = failure.get('comparison') or 'equals'
    if comparison == 'equals' and len(expected) == 1:
        return _text(expected[0])
    return '%s %s' % (comparison, _text(expected))


def _matrix(report, out):
    rules = report['rules']
    escape = html.escape
    out.append('<table id="matrix"><thead><tr><th>host</th><th>status</th>%s</tr></thead><tbody>'
               % ''.join('<th>%s</th>' % escape(rule) for rule in rules))
    for entry in report['hosts']:
        if entry['status'] == COMPLIANT:
            continue
        cells = []
        for rule in rules:
            css, label = CELL.get(entry['states'].get(rule), ('none', '\u2013'))
            cells.append('<td class="%s c">%s</td>' % (css, label))
        status = entry['status'] if entry['status'] == NOT_COMPLIANT else REASONS[entry['reason']]
        out.append('<tr><th><a href="#h-%s">%s</a></th><td>%s</td>%s</tr>'
                   % (escape(entry['host'], True), escape(entry['host']), escape(status), ''.join(cells)))
    out.append('<tr><th colspan="%d">%d compliant host(s): every rule passes or is waived</th></tr>'
               % (len(rules) + 2, report['totals']['compliant']))
    out.append('</tbody></table>')


def _failure_rows(entry, out):
    escape = html.escape
    for failure in entry['failures']:
        actual = _text(failure.get('actual'))
        notes = []
        for item in failure.get('offending', []):
            notes.append('%s %s' % (item['value'], 'missing' if item['missing'] else 'at ' + item['origin']))
        notes.extend(failure.get('findings', []))
        out.append('<tr><td>%s</td><td>%s</td><td><code>%s</code></td><td><code>%s</code></td><td>%s</td>'
                   '<td>%s</td></tr>'
                   % (escape(failure['rule']), escape(failure['severity']), escape(_expected_text(failure)),
                      escape(actual), escape(failure['origin']), escape('; '.join(notes))))


def _details(report, out):
    escape = html.escape
    out.append('<h2>What fails, host by host</h2>')
    for entry in report['hosts']:
        if entry['status'] == COMPLIANT or not (entry['failures'] or entry.get('reason')):
            continue
        out.append('<h3 id="h-%s">%s</h3>' % (escape(entry['host'], True), escape(entry['host'])))
        if entry.get('reason'):
            out.append('<p>Not judged: %s. %s</p>' % (escape(REASONS[entry['reason']]), escape(entry['message'])))
        if entry['failures']:
            out.append('<table><tr><th>rule</th><th>severity</th><th>expected</th><th>actual</th>'
                       '<th>origin</th><th>details</th></tr>')
            _failure_rows(entry, out)
            out.append('</table>')
        for waived in entry['waived']:
            out.append('<p>%s waived until %s: %s</p>'
                       % (escape(waived['rule']), escape(waived['expires']), escape(waived['reason'])))


def render_html(report):
    """The report as one self-contained HTML page."""
    escape = html.escape
    totals = report['totals']
    out = ['<!DOCTYPE html><html lang="en"><head><meta charset="utf-8">',
           '<meta http-equiv="Content-Security-Policy" content="default-src \'none\'; style-src \'unsafe-inline\'">',
           '<title>Local policy compliance: %s</title><style>%s</style></head><body>'
           % (escape(report['baseline']), STYLE),
           '<h1>Local policy compliance against %s</h1>' % escape(report['baseline']),
           '<p>Generated %s. Each host\'s effective policy as the client reads it, judged by '
           '<code>qnpolicy comply</code>.</p>' % escape(report['generated']),
           '<table class="totals" id="totals"><tr><th>hosts</th><th>compliant</th><th>not compliant</th>'
           '<th>unreadable (not judged)</th></tr><tr><td>%d</td><td>%d</td><td>%d</td><td>%d</td></tr></table>'
           % (totals['hosts'], totals['compliant'], totals['not_compliant'], totals['unreadable']),
           '<h2>Hosts by rules</h2><p>Hosts that are not compliant first, then those that could not be '
           'judged; the compliant hosts are counted.</p>']
    _matrix(report, out)
    _details(report, out)
    out.append('</body></html>\n')
    return '\n'.join(out)
