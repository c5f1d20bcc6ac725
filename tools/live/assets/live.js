// The live view page: shows the program, its variables, a trend and cycle
// statistics from the runner's event stream, and sends the commands the
// buttons stand for. Every command carries the token from the page's address.
'use strict';

const token = new URLSearchParams(location.search).get('token') || '';
const $ = (id) => document.getElementById(id);
const TREND_COLOURS = ['#1f6feb', '#d81b60', '#2e7d32', '#f57c00', '#6a1b9a', '#00838f', '#5d4037', '#c0ca33'];

const view = {
  program: null,
  state: null,
  rows: new Map(),        // variable name -> its table row's cells
  trend: [],              // {cycle, values}, oldest first
  trendCapacity: 600,
  chosen: new Set(),      // names shown in the trend
  chart: null,
  lastError: null,
  lastPosition: null,
};
window.liveView = view;   // for the browser tests and for a curious engineer's console

function element(tag, attributes, text) {
  const node = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes || {})) node.setAttribute(name, value);
  if (text !== undefined) node.textContent = text;
  return node;
}

function say(text) { $('message').textContent = text || ''; }

async function send(path, body) {
  const response = await fetch(path, {
    method: 'POST',
    headers: { 'Content-Type': 'application/json', 'X-Live-Token': token },
    body: JSON.stringify(body || {}),
  });
  if (response.ok) { say(''); return true; }
  let reason = response.statusText;
  try { reason = (await response.json()).error || reason; } catch (e) { /* not JSON */ }
  say(`${path.replace('/api/', '')}: ${reason}`);
  return false;
}

// ---- Values ----

function formatValue(value, type) {
  if (value === null || value === undefined) return '—';
  if (type === 'BOOL') return value ? '1' : '0';
  if (type === 'REAL' || type === 'LREAL') return String(Number(value.toPrecision(type === 'REAL' ? 7 : 15)));
  return String(value);
}

// ---- Source ----

function renderSource(program) {
  const box = $('source');
  box.textContent = '';
  const lines = program.source.replace(/\r/g, '').split('\n');
  if (lines.length > 1 && lines[lines.length - 1] === '') lines.pop();
  lines.forEach((text, index) => {
    const line = element('div', { class: 'line', id: `line-${index + 1}` });
    line.append(element('span', { class: 'no' }, String(index + 1)), element('span', { class: 'code' }, text));
    box.append(line);
  });
  const list = $('diagnostics');
  list.textContent = '';
  for (const d of program.diagnostics) {
    const item = element('li', { class: `diagnostic ${d.severity}` }, `${d.line}:${d.column}: ${d.severity} ${d.id}: ${d.message}`);
    if ($(`line-${d.line}`)) $(`line-${d.line}`).classList.add(`${d.severity}-diagnostic`);
    list.append(item);
  }
  $('no-diagnostics').hidden = program.diagnostics.length > 0;
  if (!program.checker) $('no-diagnostics').textContent = 'This runner was built without the checker: no diagnostics.';
}

function clearMark(className) {
  for (const line of document.querySelectorAll(`.line.${className}`)) {
    line.classList.remove(className);
    if (className === 'error-line') {
      const code = line.querySelector('.code');
      code.textContent = code.textContent;
      const note = line.nextElementSibling;
      if (note && note.classList.contains('error-note')) note.remove();
    }
  }
}

// Marks the failing line, underlines the failing token and says what failed.
function showError(error) {
  const key = error ? JSON.stringify(error) : null;
  if (key === view.lastError) return;
  view.lastError = key;
  clearMark('error-line');
  const banner = $('error');
  banner.hidden = !error;
  if (!error) return;
  const when = error.cycle ? ` in cycle ${error.cycle}` : ' while loading';
  const code = error.code ? `error ${error.code}: ` : 'error: ';
  banner.textContent = `Line ${error.line}, column ${error.column}: ${code}${error.message}${when}`;
  const line = $(`line-${error.line}`);
  if (!line) return;
  line.classList.add('error-line');
  const codeSpan = line.querySelector('.code');
  const text = codeSpan.textContent;
  const start = Math.max(0, error.column - 1);
  const end = Math.min(text.length, start + Math.max(1, error.length));
  codeSpan.textContent = '';
  codeSpan.append(text.slice(0, start), element('span', { class: 'error-token' }, text.slice(start, end)), text.slice(end));
  line.after(element('div', { class: 'error-note' }, `${code}${error.message}${when}`));
  line.scrollIntoView({ block: 'nearest' });
}

function showPosition(position) {
  const line = position ? position.line : null;
  if (line === view.lastPosition) return;
  view.lastPosition = line;
  clearMark('current-line');
  if (line && $(`line-${line}`)) {
    $(`line-${line}`).classList.add('current-line');
    $(`line-${line}`).scrollIntoView({ block: 'nearest' });
  }
}

// ---- Variables ----

function inputControl(variable) {
  const cell = element('td', { class: 'input' });
  if (variable.kind !== 'VI') return cell;
  if (variable.type === 'BOOL') {
    const toggle = element('button', { type: 'button', class: 'toggle', id: `toggle-${variable.name}`, 'aria-pressed': 'false' }, '0');
    toggle.addEventListener('click', () =>
      send('/api/input', { name: variable.name, value: toggle.getAttribute('aria-pressed') !== 'true' }));
    cell.append(toggle);
  } else {
    const field = element('input', { type: 'number', step: 'any', id: `input-value-${variable.name}` });
    const set = element('button', { type: 'button', id: `set-${variable.name}` }, 'Set');
    set.addEventListener('click', () => send('/api/input', { name: variable.name, value: Number(field.value) }));
    cell.append(field, ' ', set);
  }
  return cell;
}

function forceControl(variable) {
  const cell = element('td', { class: 'force' });
  if (variable.kind === 'V') return cell;
  const field = element('input', { type: 'number', step: 'any', id: `force-value-${variable.name}`, value: '0' });
  const force = element('button', { type: 'button', id: `force-${variable.name}` }, 'Force');
  const release = element('button', { type: 'button', id: `release-${variable.name}` }, 'Release');
  force.addEventListener('click', () => send('/api/force', { name: variable.name, value: Number(field.value) }));
  release.addEventListener('click', () => send('/api/release', { name: variable.name }));
  cell.append(field, ' ', force, ' ', release);
  return cell;
}

function renderVariables(program) {
  const body = document.querySelector('#variables tbody');
  body.textContent = '';
  for (const variable of program.variables) {
    const row = element('tr', { id: `var-${variable.name}` });
    const choose = element('input', { type: 'checkbox', id: `trend-${variable.name}` });
    choose.checked = view.chosen.has(variable.name);
    choose.addEventListener('change', () => {
      if (choose.checked) view.chosen.add(variable.name); else view.chosen.delete(variable.name);
      drawTrend();
    });
    const pick = element('td');
    pick.append(choose);
    const cells = {
      value: element('td', { class: 'value' }, '—'),
      written: element('td', { class: 'written' }),
      forced: element('td', { class: 'forced' }),
      row,
    };
    row.append(pick, element('td', { class: 'name' }, variable.name), element('td', {}, variable.kind),
      element('td', {}, variable.type), cells.value, cells.written, cells.forced, inputControl(variable),
      forceControl(variable));
    body.append(row);
    view.rows.set(variable.name, cells);
  }
}

function updateVariables(state) {
  const declared = view.program.variables;
  state.variables.forEach((variable, index) => {
    const cells = view.rows.get(variable.name);
    if (!cells) return;
    const type = declared[index].type;
    const text = formatValue(variable.value, type);
    cells.value.classList.toggle('changed', cells.value.textContent !== text && cells.value.textContent !== '—');
    cells.value.textContent = text;
    cells.value.title = variable.forced ? `forced; the program's own value: ${formatValue(variable.programValue, type)}` : '';
    cells.written.textContent = variable.written === null ? '' : (variable.written ? '✓' : '·');
    cells.forced.textContent = '';
    if (variable.forced) cells.forced.append(element('span', { class: 'badge' }, `F ${text}`));
    cells.row.classList.toggle('forced', variable.forced);
    const toggle = $(`toggle-${variable.name}`);
    if (toggle && variable.given !== undefined) {
      toggle.setAttribute('aria-pressed', variable.given ? 'true' : 'false');
      toggle.textContent = variable.given ? '1' : '0';
    }
  });
}

// ---- Trend ----

function addTrend(rows) {
  for (const row of rows) {
    const last = view.trend.length ? view.trend[view.trend.length - 1].cycle : -1;
    if (row.cycle <= last) continue;
    view.trend.push(row);
  }
  if (view.trend.length > view.trendCapacity) view.trend.splice(0, view.trend.length - view.trendCapacity);
}

function drawTrend() {
  if (!view.chart || !view.program) return;
  const length = Number($('trend-length').value);
  const rows = view.trend.slice(-length);
  const names = view.program.variables.map((v) => v.name);
  view.chart.data.labels = rows.map((row) => row.cycle);
  view.chart.data.datasets = [...view.chosen].map((name, i) => {
    const index = names.indexOf(name);
    const bool = view.program.variables[index].type === 'BOOL';
    return {
      label: name,
      data: rows.map((row) => row.values[index]),
      borderColor: TREND_COLOURS[i % TREND_COLOURS.length],
      backgroundColor: TREND_COLOURS[i % TREND_COLOURS.length],
      stepped: bool,
      pointRadius: 0,
      borderWidth: 2,
    };
  });
  view.chart.update('none');
}

function makeChart() {
  if (typeof Chart === 'undefined') { say('the trend chart could not be loaded'); return; }
  view.chart = new Chart($('trend'), {
    type: 'line',
    data: { labels: [], datasets: [] },
    options: {
      animation: false,
      responsive: true,
      maintainAspectRatio: false,
      interaction: { mode: 'index', intersect: false },
      scales: { x: { title: { display: true, text: 'cycle' }, ticks: { maxTicksLimit: 10 } } },
      plugins: { legend: { position: 'bottom' } },
    },
  });
}

// ---- State and statistics ----

function microseconds(value) {
  if (value >= 1000) return `${(value / 1000).toFixed(2)} ms`;
  return `${value.toFixed(1)} µs`;
}

function updateStats(state) {
  const s = state.stats;
  const entries = [
    ['Cycles run', String(s.cycles)], ['Failed cycles', String(s.failures)],
    ['Budget hits', String(s.budgetHits)], ['Period', `${state.periodMs} ms`],
    ['Last cycle', microseconds(s.lastUs)], ['Median cycle', microseconds(s.medianUs)],
    ['Longest cycle', microseconds(s.maxUs)],
    ['Start jitter (median / p99 / max)', `${microseconds(s.jitterMedianUs)} / ${microseconds(s.jitterP99Us)} / ${microseconds(s.jitterMaxUs)}`],
  ];
  const list = $('stats');
  list.textContent = '';
  for (const [name, value] of entries) list.append(element('dt', {}, name), element('dd', {}, value));
}

function updateControls(state) {
  const badge = $('run-state');
  badge.textContent = state.state;
  badge.className = `state ${state.state}`;
  $('cycle').textContent = String(state.cycle);
  const stopped = state.state !== 'running';
  const loaded = state.state !== 'load-failed';
  $('pause').disabled = !loaded || state.state === 'paused' || state.state === 'at-instruction';
  $('resume').disabled = !loaded || !stopped;
  $('step-cycle').disabled = !loaded || !stopped;
  $('step-instruction').disabled = !loaded || !stopped;
}

function update(message) {
  const state = message.state;
  view.state = state;
  updateControls(state);
  updateVariables(state);
  updateStats(state);
  showError(state.error);
  showPosition(state.position);
  addTrend(message.trend);
  drawTrend();
}

// ---- Start ----

async function start() {
  if (!token) say('No token in the address: the page can watch but not change anything.');
  const response = await fetch('/api/program');
  const program = await response.json();
  view.program = program;
  view.trendCapacity = program.trendCapacity;
  $('program-path').textContent = program.path;
  for (const v of program.variables) if (v.kind === 'VO' && view.chosen.size < 8) view.chosen.add(v.name);
  renderSource(program);
  renderVariables(program);
  makeChart();
  if (program.loadError) showError(program.loadError);

  $('pause').addEventListener('click', () => send('/api/pause'));
  $('resume').addEventListener('click', () => send('/api/resume'));
  $('step-cycle').addEventListener('click', () => send('/api/step-cycle'));
  $('step-instruction').addEventListener('click', () => send('/api/step-instruction'));
  $('trend-length').addEventListener('change', drawTrend);

  const events = new EventSource('/api/events');
  events.addEventListener('update', (event) => update(JSON.parse(event.data)));
  events.addEventListener('error', () => {
    $('run-state').textContent = 'disconnected';
    $('run-state').className = 'state failed';
  });
}

start().catch((error) => say(`cannot start: ${error}`));
