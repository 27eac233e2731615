"""HTTP side of the offline release mirror: GitHub's API, web pages and downloads, PyPI's JSON and the
fallback FFmpeg site, all served from one folder on 127.0.0.1.

URL prefixes: /api (GitHub REST API), /github (web pages, release downloads, source archives), /pypi,
/ffmpeg-fallback. Files live under {root}/www with the same paths. A repository's releases are the tag
folders of releases/download/ and the archives of archive/refs/tags/; the latest is the greatest by
version order, unless {root}/www/github/{owner}/{name}/latest names it.

{root}/control.json, read at each request, changes answers for tests and demos:
  {"rules": [{"prefix": "/api/", "status": 403},
             {"prefix": "/github/owner/name/releases/download/", "cutAfter": 1000}]}
The first rule whose prefix starts the request path applies: "status" answers that status, "cutAfter"
announces the whole length but closes the connection after that many bytes. Each request is logged to
{root}/requests.log as "METHOD PATH USER-AGENT".
"""

import http.server
import json
import os
import re
import threading

from mirror_fixtures import WWW

CONTROL_FILE = "control.json"
REQUESTS_LOG = "requests.log"


def version_key(text):
    pieces = [int(p) for p in re.split(r"[^0-9]+", text.strip("vV ")) if p]
    return pieces


def version_order(a, b):
    ka, kb = version_key(a), version_key(b)
    length = max(len(ka), len(kb))
    ka += [0] * (length - len(ka))
    kb += [0] * (length - len(kb))
    return (ka > kb) - (ka < kb)


class Mirror:
    def __init__(self, root):
        self.root = os.path.abspath(root)
        self.www = os.path.join(self.root, WWW)
        self.log_lock = threading.Lock()

    def rules(self):
        try:
            with open(os.path.join(self.root, CONTROL_FILE), encoding="utf-8") as handle:
                rules = json.load(handle).get("rules", [])
            return [r for r in rules if isinstance(r, dict) and isinstance(r.get("prefix"), str)]
        except (OSError, ValueError, AttributeError):
            return []

    def log(self, method, path, agent):
        with self.log_lock, open(os.path.join(self.root, REQUESTS_LOG), "a", encoding="utf-8") as handle:
            handle.write("%s %s %s\n" % (method, path, agent or "-"))

    def local_file(self, url_path):
        """The file under www/ for a URL path, never outside it."""
        candidate = os.path.realpath(os.path.join(self.www, url_path.lstrip("/")))
        if not candidate.startswith(os.path.realpath(self.www) + os.sep) or not os.path.isfile(candidate):
            return None
        return candidate

    def tags(self, repo):
        base = os.path.join(self.www, "github", repo)
        found = set()
        downloads = os.path.join(base, "releases", "download")
        if os.path.isdir(downloads):
            found.update(name for name in os.listdir(downloads) if os.path.isdir(os.path.join(downloads, name)))
        archives = os.path.join(base, "archive", "refs", "tags")
        if os.path.isdir(archives):
            found.update(name[: -len(".tar.gz")] for name in os.listdir(archives) if name.endswith(".tar.gz"))
        return found

    def latest_tag(self, repo):
        pinned = os.path.join(self.www, "github", repo, "latest")
        if os.path.isfile(pinned):
            with open(pinned, encoding="utf-8") as handle:
                return handle.read().strip() or None
        best = None
        for tag in self.tags(repo):
            if best is None or version_order(tag, best) > 0:
                best = tag
        return best


REPO = r"(?P<repo>[^/]+/[^/]+)"
API_LATEST = re.compile(r"^/api/repos/%s/releases/latest$" % REPO)
WEB_LATEST = re.compile(r"^/github/%s/releases/latest$" % REPO)
WEB_TAG = re.compile(r"^/github/%s/releases/tag/(?P<tag>[^/]+)$" % REPO)
LATEST_DOWNLOAD = re.compile(r"^/github/%s/releases/latest/download/(?P<asset>[^/]+)$" % REPO)


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server_version = "MarluneMirror/1"
    mirror = None  # set by serve()

    def log_message(self, *args):
        pass

    def do_GET(self):
        self.answer(send_body=True)

    def do_HEAD(self):
        self.answer(send_body=False)

    def answer(self, send_body):
        path = self.path.split("?", 1)[0]
        self.mirror.log(self.command, path, self.headers.get("User-Agent"))
        rule = next((r for r in self.mirror.rules() if path.startswith(r["prefix"])), None)
        if rule and "status" in rule:
            return self.send_json(int(rule["status"]), {"message": "Status set by the mirror's control file"},
                                  send_body)
        match = API_LATEST.match(path)
        if match:
            tag = self.mirror.latest_tag(match["repo"])
            if tag is None:
                return self.send_json(404, {"message": "Not Found"}, send_body)
            base = "http://%s/github/%s" % (self.headers.get("Host"), match["repo"])
            return self.send_json(200, {"tag_name": tag, "name": tag, "html_url": base + "/releases/tag/" + tag,
                                        "body": "", "assets": []}, send_body)
        match = WEB_LATEST.match(path)
        if match:
            tag = self.mirror.latest_tag(match["repo"])
            if tag is None:
                return self.send_bytes(404, b"Not Found\n", "text/plain", send_body)
            return self.redirect("/github/%s/releases/tag/%s" % (match["repo"], tag), send_body)
        match = WEB_TAG.match(path)
        if match:
            if match["tag"] not in self.mirror.tags(match["repo"]):
                return self.send_bytes(404, b"Not Found\n", "text/plain", send_body)
            page = "<html><body>Release %s</body></html>\n" % match["tag"]
            return self.send_bytes(200, page.encode(), "text/html", send_body)
        match = LATEST_DOWNLOAD.match(path)
        if match:
            tag = self.mirror.latest_tag(match["repo"])
            if tag is None:
                return self.send_bytes(404, b"Not Found\n", "text/plain", send_body)
            return self.redirect("/github/%s/releases/download/%s/%s" % (match["repo"], tag, match["asset"]),
                                 send_body)
        local = self.mirror.local_file(path)
        if local is None:
            return self.send_bytes(404, b"Not Found\n", "text/plain", send_body)
        with open(local, "rb") as handle:
            data = handle.read()
        content_type = "application/json" if path.startswith("/pypi/") else "application/octet-stream"
        cut = rule.get("cutAfter") if rule else None
        self.send_bytes(200, data, content_type, send_body, cut_after=cut)

    def redirect(self, location, send_body):
        self.send_response(302)
        self.send_header("Location", location)
        self.send_header("Content-Length", "0")
        self.end_headers()

    def send_json(self, status, document, send_body):
        self.send_bytes(status, json.dumps(document).encode(), "application/json", send_body)

    def send_bytes(self, status, data, content_type, send_body, cut_after=None):
        self.send_response(status)
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        if not send_body:
            return
        if cut_after is not None:
            self.wfile.write(data[: int(cut_after)])
            self.wfile.flush()
            self.close_connection = True
            return
        self.wfile.write(data)


def serve(root, port, on_ready):
    """Serves `root` on 127.0.0.1:`port` (0: a free one) until interrupted; `on_ready(port)` first."""
    handler = type("MirrorHandler", (Handler,), {"mirror": Mirror(root)})
    server = http.server.ThreadingHTTPServer(("127.0.0.1", port), handler)
    server.daemon_threads = True
    on_ready(server.server_address[1])
    try:
        server.serve_forever()
    finally:
        server.server_close()
