"""OUTPUT/index.html: a run's progress and results for a person, one
self-contained page (no script, style sheet or font from elsewhere), so it
opens from a shared folder on a machine without internet."""

import html
import time
from typing import Dict, List, Optional, Tuple

_STYLE = """body{font:14px sans-serif;margin:1.5em;color:#222}table{border-collapse:collapse;margin:.5em 0 1.5em}
td,th{padding:2px 10px;border-bottom:1px solid #ddd;text-align:right}
td:first-child,th:first-child,td:last-child,th:last-child{text-align:left}
.done{color:#176b17}.partial{color:#a66300}.failed{color:#b00}.skipped{color:#555}.waiting{color:#888}
progress{width:24em}svg text{font:12px sans-serif}"""


def _bars(title: str, values: List[Tuple[str, float]], form: str) -> str:
    """A horizontal bar chart as inline SVG."""
    if not values:
        return ""
    top = max(v for _, v in values) or 1.0
    row, width = 22, 420
    parts = [f'<svg class="plot" role="img" aria-label="{html.escape(title)}" width="{width + 320}" '
             f'height="{row * len(values) + 8}">']
    for k, (label, value) in enumerate(values):
        y = 4 + k * row
        parts.append(f'<text x="0" y="{y + 14}">{html.escape(label)}</text>'
                     f'<rect x="160" y="{y}" width="{max(1.0, width * value / top):.1f}" height="{row - 6}" '
                     f'fill="#4a7fb5"/><text x="{166 + width * value / top:.1f}" y="{y + 14}">'
                     f'{form.format(value)}</text>')
    parts.append("</svg>")
    return f"<h3>{html.escape(title)}</h3>" + "".join(parts)


def _per_camera(rows: List[dict]) -> Dict[str, Tuple[float, int]]:
    """Hours of video processed and blobs found, per folder of outputs (a camera, in an archive laid out by camera)."""
    cameras: Dict[str, Tuple[float, int]] = {}
    for r in rows:
        if r["state"] not in ("done", "partial", "skipped") or not r.get("frame_rate"):
            continue  # image sequences have no duration
        folder = r["name"].rpartition("/")[0] or "(top)"
        hours, blobs = cameras.get(folder, (0.0, 0))
        cameras[folder] = (hours + r["frames"] / r["frame_rate"] / 3600, blobs + r.get("blobs", 0))
    return cameras


def render(rows: List[dict], finished: bool, began: float, refresh: Optional[int] = 5) -> str:
    """The page for `rows` (per input: name, state, frames, fps, reason, and when known frame_rate, blobs)."""
    done = sum(r["state"] != "waiting" for r in rows)
    counts = {s: sum(r["state"] == s for r in rows) for s in ("done", "partial", "failed", "skipped", "waiting")}
    head = ('<!DOCTYPE html><html><head><meta charset="utf-8"><title>nerva-fleet</title>'
            + ("" if finished or not refresh else f'<meta http-equiv="refresh" content="{refresh}">')
            + f"<style>{_STYLE}</style></head><body>")
    state = "finished" if finished else "running"
    summary = (f'<h1>nerva-fleet: <span id="run-state">{state}</span></h1>'
               f'<p><progress max="{len(rows)}" value="{done}"></progress> {done} of {len(rows)} inputs; '
               + ", ".join(f'<span class="{s}">{n} {s}</span>' for s, n in counts.items() if n)
               + f"; {time.perf_counter() - began:.0f} s since the start; written "
               + time.strftime("%Y-%m-%d %H:%M:%S") + "</p>")
    table = ['<table id="inputs"><tr><th>input</th><th>state</th><th>frames</th><th>frames/s</th>'
             '<th>reason</th></tr>']
    for r in rows:
        frames = "" if r["state"] == "waiting" else str(r.get("frames", ""))
        if r.get("announced_frames") and r["state"] == "partial":
            frames += f" of {r['announced_frames']}"
        fps = f"{r['fps']:.0f}" if r.get("fps") else ""
        table.append(f'<tr><td>{html.escape(r["name"])}</td><td class="{r["state"]}">{r["state"]}</td>'
                     f'<td>{frames}</td><td>{fps}</td><td>{html.escape(r.get("reason", ""))}</td></tr>')
    table.append("</table>")
    cameras = sorted(_per_camera(rows).items())
    plots = ""
    if cameras:
        plots = ("<h2>Per camera folder</h2>"
                 + _bars("hours processed", [(c, h) for c, (h, _) in cameras], "{:,.2f} h")
                 + _bars("blobs per hour", [(c, b / h if h else 0.0) for c, (h, b) in cameras], "{:,.0f}"))
    return head + summary + "<h2>Inputs</h2>" + "".join(table) + plots + "</body></html>\n"
