// The commissioning page: plain HTML, CSS and a little JavaScript, with no external resources.
#include "WebPage.hpp"

namespace VantrelNetd
{

namespace
{

// Polls /api/status twice a second and rebuilds the tables; forms post to /api/assign and /api/unassign.
const char* const page = R"PAGE(<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>vantrel-netd</title>
<style>
body{font:15px system-ui,sans-serif;margin:0;background:#f4f5f7;color:#1d2330}
header{background:#1d2330;color:#fff;padding:.6em 1em;display:flex;flex-wrap:wrap;gap:1em;align-items:center}
header h1{font-size:1.1em;margin:0}
main{padding:1em;display:grid;gap:1em;grid-template-columns:repeat(auto-fit,minmax(420px,1fr))}
section{background:#fff;border-radius:6px;padding:.8em;box-shadow:0 1px 2px #0002;overflow-x:auto}
#devices-section{grid-column:1/-1}
h2{font-size:1em;margin:.2em 0 .6em}
table{border-collapse:collapse;width:100%}
td,th{text-align:left;padding:.35em .4em;border-bottom:1px solid #e3e5ea;vertical-align:middle}
input{font:inherit;padding:.3em;width:8.5em}
input.name{width:7em}
button{font:inherit;padding:.35em .8em;border:0;border-radius:4px;background:#2f6fdf;color:#fff;min-height:2.2em}
button.remove{background:#b43a3a}
.none{color:#b06000}.ok{color:#2a7d2a}.bad{color:#b43a3a}
progress{width:10em;height:1em}
#message{min-height:1.3em}
.settings{white-space:pre-wrap;font-family:monospace;font-size:.85em}
</style></head><body>
<header><h1>vantrel-netd</h1><span id="summary"></span>
<label>Token <input id="token" type="password" autocomplete="off"></label><span id="message"></span></header>
<main>
<section id="devices-section"><h2>Devices seen</h2><table><thead><tr><th>Hardware address</th><th>Seen</th><th>Last seen</th>
<th>Assignment</th><th></th></tr></thead><tbody id="devices"></tbody></table></section>
<section><h2>Transfers in progress</h2><table><tbody id="running"></tbody></table>
<h2>Recent transfers</h2><table><tbody id="recent"></tbody></table></section>
<section><h2>Servers</h2><div id="settings" class="settings"></div></section>
</main>
<script>
'use strict';
const $ = id => document.getElementById(id);
let changesAllowed = false, editing = null, shownDevices = '';
$('token').value = sessionStorage.getItem('token') || '';
$('token').addEventListener('change', () => sessionStorage.setItem('token', $('token').value));
function cell(row, text, cls) { const c = row.insertCell(); c.textContent = text; if (cls) c.className = cls; return c; }
// The daemon's times are UTC; the page shows the browser's local time of day.
function clock(time) { return new Date(time).toLocaleTimeString([], {hour12: false}); }
function say(text, cls) { $('message').textContent = text; $('message').className = cls; }
async function change(path, body) {
  const reply = await fetch(path, {method: 'POST', headers: {'Content-Type': 'application/json', 'X-Token': $('token').value},
                                    body: JSON.stringify(body)});
  const answer = await reply.json();
  say(answer.ok ? path.slice(5) + ' ' + body.hardware + ': done' : answer.error, answer.ok ? 'ok' : 'bad');
  editing = null; shownDevices = ''; refresh();
}
function form(cellOf, hardware, entry) {
  const ip = document.createElement('input'), name = document.createElement('input'), go = document.createElement('button');
  ip.placeholder = 'IP address'; ip.value = entry ? entry.ip : ''; ip.className = 'ip';
  name.placeholder = 'name'; name.value = entry ? entry.name : ''; name.className = 'name';
  go.textContent = 'Assign'; go.className = 'assign';
  for (const input of [ip, name]) input.addEventListener('focus', () => { editing = hardware; });
  go.onclick = () => change('/api/assign', {hardware, ip: ip.value, name: name.value});
  cellOf.append(ip, ' ', name, ' ', go);
}
function devices(status) {
  // Rebuilt only when something in it changed, so that a click or a keystroke is never lost to a refresh.
  const shown = JSON.stringify([changesAllowed, status.devices, status.assignments]);
  if (shown === shownDevices) return;
  shownDevices = shown;
  const table = new Map(status.assignments.map(a => [a.hardware, a]));
  const body = $('devices'); body.textContent = '';
  for (const device of status.devices) {
    const row = body.insertRow(), entry = table.get(device.hardware);
    row.dataset.hardware = device.hardware;
    cell(row, device.hardware); cell(row, device.times_seen); cell(row, clock(device.last_seen)).title = device.last_seen;
    if (entry) cell(row, entry.ip + (entry.name ? ' (' + entry.name + ')' : '') + (entry.source === 'config' ? ' [config]' : ''), 'ok');
    else cell(row, 'no configuration', 'none');
    const actions = row.insertCell();
    if (!changesAllowed || (entry && entry.source === 'config')) continue;
    form(actions, device.hardware, entry);
    if (entry) {
      const remove = document.createElement('button'); remove.textContent = 'Remove'; remove.className = 'remove';
      remove.onclick = () => change('/api/unassign', {hardware: device.hardware}); actions.append(' ', remove);
    }
  }
}
function transfers(status) {
  const running = $('running'); running.textContent = '';
  for (const t of status.running) {
    const row = running.insertRow(); row.className = 'transfer';
    cell(row, t.direction + ' ' + t.name); cell(row, t.client);
    const bar = document.createElement('progress');
    if (t.size && t.bytes !== null) { bar.max = t.size; bar.value = Math.min(t.bytes, t.size); }
    row.insertCell().append(bar); cell(row, (t.bytes === null ? '?' : t.bytes) + ' bytes');
  }
  if (!status.running.length) cell(running.insertRow(), 'none');
  const recent = $('recent'); recent.textContent = '';
  for (const t of status.recent.slice().reverse()) {
    const row = recent.insertRow(); row.className = 'finished';
    cell(row, clock(t.time)).title = t.time; cell(row, t.text, t.outcome === 'complete' ? 'ok' : 'bad');
  }
}
async function refresh() {
  try {
    const status = await (await fetch('/api/status', {cache: 'no-store'})).json();
    $('summary').textContent = 'pid ' + status.pid + ', up ' + status.uptime_seconds + ' s, ' + status.devices.length + ' device(s)';
    $('settings').textContent = status.settings.join('\n');
    if (editing === null) devices(status);
    transfers(status);
  } catch (error) { say('the daemon does not answer', 'bad'); }
}
fetch('/api/changes').then(r => r.json()).then(c => { changesAllowed = c.allowed; refresh(); });
setInterval(refresh, 500);
</script></body></html>
)PAGE";

} // namespace

const char* WebPage::Html()
{
    return page;
}

} // namespace VantrelNetd
