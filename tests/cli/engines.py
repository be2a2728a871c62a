"""Servers of other makers for the tests: started on the loopback at free ports, in a folder of their
own, and ended by their number.
"""

import json
import os
import shutil
import signal
import socket
import subprocess
import time
import urllib.error
import urllib.parse
import urllib.request
from pathlib import Path

from verdict import Failure, Skip

START_LIMIT = 90
QUICKLY = 30
# A proxy that the environment names must not come between a test and its server.
DIRECT = urllib.request.build_opener(urllib.request.ProxyHandler({}))


def free_ports(count):
    """So many ports that are free now."""
    held = [socket.socket() for _ in range(count)]
    try:
        for each in held:
            each.bind(("127.0.0.1", 0))
        return [each.getsockname()[1] for each in held]
    finally:
        for each in held:
            each.close()


def program(*names):
    """The first of these programs that is installed; one that is not skips the test."""
    for name in names:
        for path in (shutil.which(name), f"/usr/sbin/{name}"):
            if path is not None and os.access(path, os.X_OK):
                return path
    raise Skip(f"{names[0]} is not installed")


class Server:
    """One process with its port; the next start uses the same folder and port."""

    def __init__(self, folder):
        self.folder = Path(folder)
        self.folder.mkdir(parents=True, exist_ok=True)
        self.process = None

    def words(self):
        raise NotImplementedError

    def ready_url(self):
        raise NotImplementedError

    def start(self):
        with open(self.folder / "log", "ab") as log:
            self.process = subprocess.Popen(self.words(), cwd=self.folder, stdin=subprocess.DEVNULL,
                                            stdout=log, stderr=log)
        until = time.monotonic() + START_LIMIT
        while time.monotonic() < until:
            if self.process.poll() is not None:
                break
            try:
                with DIRECT.open(self.ready_url(), timeout=5) as reply:
                    if reply.status == 200:
                        return self
            except (urllib.error.URLError, OSError):
                pass
            time.sleep(0.1)
        self.stop()
        text = (self.folder / "log").read_text(errors="replace")[-2000:]
        raise Failure(f"{self.words()[0]} does not start: {text}")

    def end(self, how):
        if self.process is not None and self.process.poll() is None:
            self.process.send_signal(how)
            try:
                self.process.wait(QUICKLY)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        self.process = None

    def kill(self):
        self.end(signal.SIGKILL)

    def stop(self):
        self.end(signal.SIGTERM)

    def __enter__(self):
        return self.start()

    def __exit__(self, *_):
        self.stop()


CLICKHOUSE_CONFIG = """<yandex>
<logger><level>warning</level><log>{folder}/server.log</log><errorlog>{folder}/error.log</errorlog>
</logger>
<listen_host>127.0.0.1</listen_host>
<http_port>{http}</http_port><tcp_port>{tcp}</tcp_port>
<interserver_http_port>{interserver}</interserver_http_port>
<interserver_http_host>127.0.0.1</interserver_http_host>
<path>{folder}/data/</path><tmp_path>{folder}/tmp/</tmp_path>
<user_files_path>{folder}/files/</user_files_path>
<format_schema_path>{folder}/schemas/</format_schema_path>
<users_config>{folder}/users.xml</users_config>
<default_profile>default</default_profile><default_database>default</default_database>
<mark_cache_size>67108864</mark_cache_size>
<timezone>{zone}</timezone>
<remote_servers>{clusters}</remote_servers>
</yandex>
"""
CLICKHOUSE_USERS = """<yandex><profiles><default><max_memory_usage>1000000000</max_memory_usage>
<skip_unavailable_shards>{skips}</skip_unavailable_shards></default></profiles>
<users><default><password></password><networks><ip>127.0.0.1</ip></networks>
<profile>default</profile><quota>default</quota></default>
<pusher><password>secret of a test</password><networks><ip>127.0.0.1</ip></networks>
<profile>default</profile><quota>default</quota></pusher></users>
<quotas><default><interval><duration>3600</duration><queries>0</queries><errors>0</errors>
<result_rows>0</result_rows><read_rows>0</read_rows><execution_time>0</execution_time></interval>
</default></quotas></yandex>
"""


class ClickHouse(Server):
    """@p ports: for HTTP, for others of its kind, and between replicas. With @p skips it answers
    without shards that are away."""

    def __init__(self, folder, ports=None, shards=(), zone="Asia/Tokyo", skips=False):
        self.server = program("clickhouse-server")
        super().__init__(folder)
        self.http, self.tcp, interserver = ports or free_ports(3)
        clusters = "".join(
            f"<shard><replica><host>127.0.0.1</host><port>{tcp}</port></replica></shard>"
            for tcp in shards)
        for name in ("data", "tmp", "files", "schemas"):
            (self.folder / name).mkdir(exist_ok=True)
        (self.folder / "users.xml").write_text(CLICKHOUSE_USERS.format(skips=int(skips)))
        (self.folder / "config.xml").write_text(CLICKHOUSE_CONFIG.format(
            folder=self.folder, http=self.http, tcp=self.tcp, interserver=interserver, zone=zone,
            clusters=f"<fleet>{clusters}</fleet>" if shards else ""))

    def words(self):
        return [self.server, f"--config-file={self.folder}/config.xml"]

    def ready_url(self):
        return f"http://127.0.0.1:{self.http}/ping"

    def url(self, database="fleet"):
        return f"clickhouse://127.0.0.1:{self.http}/{database}"

    def bytes_of(self, query, **settings):
        words = urllib.parse.urlencode(settings)
        request = urllib.request.Request(f"http://127.0.0.1:{self.http}/?{words}",
                                         data=query.encode())
        try:
            with DIRECT.open(request, timeout=120) as reply:
                return reply.read()
        except urllib.error.HTTPError as error:
            raise Failure(f"{query}: {error.read().decode(errors='replace')[:500]}") from error

    def ask(self, query, **settings):
        """The rows of the answer as lists of texts."""
        text = self.bytes_of(query, **settings).decode(errors="surrogateescape")
        return [line.split("\t") for line in text.splitlines()]

    def number(self, query, **settings):
        return int(self.ask(query, **settings)[0][0])


class MetricStore(Server):
    """A store of metrics that takes remote write and answers queries of Prometheus."""

    port = 0

    def url(self):
        return f"remote-write+http://127.0.0.1:{self.port}/api/v1/write"

    def query(self, query, when=None):
        """The series of the answer: labels, and points with times in milliseconds."""
        words = {"query": query, "nocache": "1"}
        if when is not None:
            words["time"] = str(when)
        request = urllib.request.Request(f"http://127.0.0.1:{self.port}/api/v1/query",
                                         data=urllib.parse.urlencode(words).encode())
        try:
            with DIRECT.open(request, timeout=60) as reply:
                answer = json.load(reply)["data"]["result"]
        except urllib.error.HTTPError as error:
            raise Failure(f"{query}: {error.read().decode(errors='replace')[:500]}") from error
        return [(series["metric"], [(round(1000 * when), float(value))
                                    for when, value in series.get("values",
                                                                  [series.get("value")])])
                for series in answer]


class VictoriaMetrics(MetricStore):
    def __init__(self, folder):
        self.server = program("victoria-metrics")
        super().__init__(folder)
        self.port = free_ports(1)[0]

    def words(self):
        return [self.server, f"-storageDataPath={self.folder}/data",
                f"-httpListenAddr=127.0.0.1:{self.port}", "-retentionPeriod=100y",
                "-dedup.minScrapeInterval=1ms", "-search.latencyOffset=0s"]

    def ready_url(self):
        return f"http://127.0.0.1:{self.port}/health"


class MetricAgent(MetricStore):
    """Takes remote write for @p store, keeps it on the disk while that is away, and answers nothing."""

    def __init__(self, folder, store):
        self.server = program("vmagent")
        super().__init__(folder)
        self.port = free_ports(1)[0]
        self.store = store

    def words(self):
        return [self.server, f"-httpListenAddr=127.0.0.1:{self.port}",
                f"-remoteWrite.url=http://127.0.0.1:{self.store.port}/api/v1/write",
                f"-remoteWrite.tmpDataPath={self.folder}/queue"]

    def ready_url(self):
        return f"http://127.0.0.1:{self.port}/health"


class Prometheus(MetricStore):
    """Takes what is up to @p window old, if there is one, and else what is newer than all before."""

    def __init__(self, folder, window="12h"):
        self.server = program("prometheus")
        super().__init__(folder)
        self.port = free_ports(1)[0]
        text = "global: {scrape_interval: 1h}\n"
        if window:
            text += f"storage: {{tsdb: {{out_of_order_time_window: {window}}}}}\n"
        (self.folder / "config.yml").write_text(text)

    def words(self):
        return [self.server, f"--config.file={self.folder}/config.yml",
                f"--storage.tsdb.path={self.folder}/data",
                f"--web.listen-address=127.0.0.1:{self.port}",
                "--web.enable-remote-write-receiver", "--storage.tsdb.retention.time=100y"]

    def ready_url(self):
        return f"http://127.0.0.1:{self.port}/-/ready"
