"""The page as it is deployed: the shipped configuration in a stock web server, and a real browser."""
import http.client
import json
import os
import pathlib
import shutil
import subprocess
import tempfile

import pytest
from selenium import webdriver
from selenium.webdriver.chrome.service import Service

from . import processes
from .paths import REPOSITORY, program

CGI = pathlib.Path(program("TALLY_CGI_BIN", "web/cgi/tally-cgi"))
HOST = "127.0.0.1"

# What the distribution's own configuration does before it includes that of the page.
_STOCK = {
    "lighttpd": ("/usr/sbin/lighttpd", ["-D", "-f"], """
server.port = {port}
server.bind = "127.0.0.1"
server.document-root = "{root}"
mimetype.assign = (".html" => "text/html", ".css" => "text/css", ".js" => "text/javascript")
include "{config}"
"""),
    "apache": ("/usr/sbin/apache2", ["-DFOREGROUND", "-f"], """
ServerName 127.0.0.1
Listen 127.0.0.1:{port}
PidFile {root}/pid
ErrorLog {root}/errors
Mutex file:{root}
DocumentRoot {root}
User www-data
Group www-data
TypesConfig /etc/mime.types
""" + "".join(f"LoadModule {name}_module /usr/lib/apache2/modules/mod_{name}.so\n" for name in
              ("mpm_prefork", "authn_core", "authn_file", "authz_core", "authz_user", "auth_basic", "alias", "mime", "dir",
               "headers", "cgi")) + "Include {config}\n"),
}


class WebServer:
    def __init__(self, kind, port, more=""):
        """more: configuration that somebody adds to the shipped one."""
        if kind == "apache" and pathlib.Path("/proc/self/uid_map").read_text(encoding="ascii").split()[2] == "1":
            pytest.skip("Apache serves no pages as root, and here is no other user")
        self.kind, self.port = kind, port
        self.origin = f"http://{HOST}:{port}"
        root = pathlib.Path(tempfile.mkdtemp(prefix=f"{kind}-"))
        root.chmod(0o777)  # where any user of a server may read what is installed
        for binary in (CGI, CGI.with_name("tally-query")):
            shutil.copy(binary, root)
        shutil.copytree(REPOSITORY / "web" / "page", root / "page")
        shutil.copy(CGI.parents[1] / "page" / "columns.js", root / "page")
        config = root / "tallyd.conf"
        shipped = (CGI.parents[1] / f"{kind}-tallyd.conf").read_text()
        for installed in ("libexec/tallyd", "share/tallyd"):
            assert f"/usr/local/{installed}" in shipped
            shipped = shipped.replace(f"/usr/local/{installed}", str(root))
        config.write_text(shipped)
        binary, arguments, stock = _STOCK[kind]
        (root / "main.conf").write_text(stock.format(port=port, root=root, config=config) + more)
        # In a process group of its own, all of which Apache ends with itself.
        self._process = subprocess.Popen([binary, *arguments, root / "main.conf"], start_new_session=True)
        self._root = root
        processes.wait_until(self._answers)

    def _answers(self):
        assert self._process.poll() is None, "the web server ended"
        try:
            return self.request("GET", "/tally/")[0] in (200, 401)
        except OSError:
            return False

    def request(self, method, path, headers=None, body=None):
        """(status, headers, body)."""
        connection = http.client.HTTPConnection(HOST, self.port, timeout=processes.PATIENCE)
        try:
            connection.request(method, path, body, headers or {})
            answer = connection.getresponse()
            return answer.status, answer.headers, answer.read()
        finally:
            connection.close()

    def send(self, message, **changes):
        """What the page sends: (status, JSON). Changes replace headers, None leaves one out."""
        headers = {"Origin": self.origin, "Sec-Fetch-Site": "same-origin", "X-Tally-Control": "1",
                   "Content-Type": "application/json"}
        headers |= {name.replace("_", "-"): value for name, value in changes.items()}
        sent = {name: value for name, value in headers.items() if value is not None}
        status, _, text = self.request("POST", "/tally/control", sent, json.dumps(message))
        try:
            return status, json.loads(text)
        except ValueError:
            return status, {}  # the server's own words, not the program's

    def stop(self):
        self._process.terminate()
        self._process.wait(processes.PATIENCE)
        shutil.rmtree(self._root, ignore_errors=True)


def start_browser(trace=""):
    """Debian's Chromium without a window; with these categories of its trace in the log "performance"."""
    options = webdriver.ChromeOptions()
    if trace:
        options.set_capability("goog:loggingPrefs", {"performance": "ALL"})
        options.add_experimental_option(
            "perfLoggingPrefs", {"enableNetwork": False, "enablePage": False, "traceCategories": trace})
    options.binary_location = "/usr/bin/chromium"
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--no-first-run", "--disable-extensions",
                     "--disable-background-networking", "--disable-component-update", "--no-proxy-server",
                     "--window-size=1280,900", "--user-data-dir=/tmp/chromium"):
        options.add_argument(argument)
    os.environ["HOME"] = "/tmp"
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
