"""tools/monitoring: a real Prometheus scrapes gatewayctl watch, and knows what the rules and the dashboard
ask for."""

import json
import re
import shutil
import subprocess
from collections.abc import Iterator
from http.client import HTTPConnection
from pathlib import Path
from typing import Any
from urllib.parse import urlencode

import pytest
from gatewayctl_support import GATEWAYCTL
from loopback_units import DATE, LoopbackUnit, LoopbackUnits

from simulation.gateway import VERSION
from simulation.places import build_directory, top_directory
from simulation.station import Station
from simulation.waiting import wait_for

pytestmark = [pytest.mark.tool, pytest.mark.once, pytest.mark.waits]

MONITORING = top_directory() / "tools" / "monitoring"
OPERATIONS = (top_directory() / "docs" / "operations.md").read_text()
RULES = (MONITORING / "alerts.yml").read_text()
DASHBOARD = json.loads((MONITORING / "dashboard.json").read_text())

# Unpacked there by scripts/check, not installed: nothing of the package is started.
PROGRAMS = build_directory().parent / "prometheus" / "usr" / "bin"
SCRAPED, ASKED = 9300, 9090

CONFIGURATION = f"""
global: {{scrape_interval: 100ms, evaluation_interval: 100ms}}
rule_files: ["{MONITORING}/alerts.yml"]
scrape_configs:
  - job_name: station-displays
    static_configs: [{{targets: ["127.0.0.1:{SCRAPED}"]}}]
"""


class Monitored:
    """A fleet of three: one is missing, and one asks for the date."""

    def __init__(self, station: Station, units: list[LoopbackUnit], directory: Path) -> None:
        self._station = station
        self.textfile = directory / "units.prom"
        inventory = directory / "units"
        inventory.write_text("first 127.0.1.1 north\nsecond 127.0.1.2\ngone 127.0.1.99\n")
        units[1].asks_for = [DATE]
        station.start_in_gateway_network(
            *(GATEWAYCTL, "watch", "--every", "1s", "--units", str(inventory)),
            *("--listen", f"127.0.0.1:{SCRAPED}", "--prometheus", str(self.textfile)),
        )
        configuration = directory / "prometheus.yml"
        configuration.write_text(CONFIGURATION)
        self.prometheus = station.start_in_gateway_network(
            *(str(PROGRAMS / "prometheus"), f"--config.file={configuration}"),
            *(f"--storage.tsdb.path={directory}/data", f"--web.listen-address=127.0.0.1:{ASKED}"),
        )

    def get(self, port: int, path: str) -> tuple[int, str]:
        """The status and the text."""
        connection = HTTPConnection("127.0.0.1", port, timeout=20)
        try:
            with self._station.on_gateway():
                connection.connect()
            connection.request("GET", path)
            response = connection.getresponse()
            return response.status, response.read().decode()
        except ConnectionRefusedError:
            assert self.prometheus.is_running(), self.prometheus.errors
            return 0, ""
        finally:
            connection.close()

    def query(self, expression: str) -> list[Any]:
        status, text = self.get(ASKED, "/api/v1/query?" + urlencode({"query": expression}))
        if status in (0, 503):  # it is still starting
            return []
        assert status == 200, (expression, text)
        result = json.loads(text)["data"]["result"]
        assert isinstance(result, list)
        return result


@pytest.fixture(scope="module")
def monitored(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Monitored]:
    with Station() as station, LoopbackUnits(station, 2) as units:
        station.write_config("{}")
        monitored = Monitored(station, units, tmp_path_factory.mktemp("monitored"))
        # Two roll calls, and then some scrapes.
        wait_for(
            lambda: monitored.query("count_over_time(station_display_roll_calls_total[1m]) > 12"),
            "scrapes",
        )
        yield monitored


def by_unit(results: list[Any]) -> dict[str, str]:
    return {result["metric"]["unit"]: result["value"][1] for result in results}


def test_prometheus_knows_the_fleet(monitored: Monitored) -> None:
    states = monitored.query("station_display_unit_present")
    assert by_unit(states) == {"first": "1", "second": "1", "gone": "0"}
    (first,) = monitored.query('station_display_unit_info{unit="first"}')
    labels = {name: first["metric"][name] for name in ("address", "group", "version", "expected")}
    assert labels == {
        "address": "127.0.1.1",
        "group": "north",
        "version": str(VERSION),
        "expected": "true",
    }
    asking = monitored.query("station_display_unit_requests_outstanding == 1")
    assert [(x["metric"]["unit"], x["metric"]["request"]) for x in asking] == [("second", "date")]
    assert monitored.query("station_display_roll_call_round_trip_seconds_count >= 2")
    answers = monitored.query("time() - station_display_unit_last_answer_timestamp_seconds < 60")
    assert set(by_unit(answers)) == {"first", "second"}


def promtool(*arguments: str, text: str = "") -> subprocess.CompletedProcess[str]:
    return subprocess.run(
        [str(PROGRAMS / "promtool"), *arguments],
        input=text,
        capture_output=True,
        text=True,
        timeout=60,
    )


def test_metrics_are_well_formed(monitored: Monitored) -> None:
    status, scraped = monitored.get(SCRAPED, "/metrics")
    assert status == 200
    for text in (scraped, monitored.textfile.read_text()):
        assert "station_display_units_present 2\n" in text
        result = promtool("check", "metrics", text=text)
        assert (result.returncode, result.stdout, result.stderr) == (0, "", "")


def test_rules_are_loaded_and_find_what_is_wrong(monitored: Monitored) -> None:
    def states() -> dict[str, str]:
        groups = json.loads(monitored.get(ASKED, "/api/v1/rules")[1])["data"]["groups"]
        rules = [rule for group in groups for rule in group["rules"]]
        assert all(rule["health"] in ("ok", "unknown") for rule in rules)
        return {rule["name"]: rule["state"] for rule in rules}

    expected = {
        "StationDisplayUnitMissing": "pending",
        "StationDisplayRollCallStopped": "inactive",
        "StationDisplayUnitNotServed": "pending",
    }
    wait_for(lambda: states() == expected, "the rules' states")


def test_rules_fire_when_they_should() -> None:
    result = promtool(
        "check", "rules", "--lint=all", "--lint-fatal", str(MONITORING / "alerts.yml")
    )
    assert result.returncode == 0, result.stderr
    assert "3 rules found" in result.stdout
    result = promtool("test", "rules", str(MONITORING / "alerts_test.yml"))
    assert result.returncode == 0, result.stdout + result.stderr


def test_tests_of_the_rules_notice_a_change(tmp_path: Path) -> None:
    shutil.copy(MONITORING / "alerts_test.yml", tmp_path)
    (tmp_path / "alerts.yml").write_text(RULES.replace("for: 15m", "for: 16m"))
    assert promtool("test", "rules", str(tmp_path / "alerts_test.yml")).returncode == 1


def anchor(heading: str) -> str:
    return re.sub(r"[^a-z0-9 -]", "", heading.lower()).replace(" ", "-")


def test_every_rule_says_what_to_do() -> None:
    links = re.findall(r"runbook_url: docs/operations\.md#(\S+)", RULES)
    assert len(links) == RULES.count("- alert: ") == 3
    headings = re.findall(r"^#+ (.*)$", OPERATIONS, re.MULTILINE)
    assert set(links) <= {anchor(heading) for heading in headings}


def expressions() -> list[str]:
    """The dashboard's, as Grafana sends them."""
    found = [target["expr"] for panel in DASHBOARD["panels"] for target in panel["targets"]]
    variables = DASHBOARD["templating"]["list"]
    found += re.findall(r"label_values\((\w+), \w+\)", str(variables))
    values = {"$group": ".*", "$__range": "1h", "$__rate_interval": "1m"}
    for name, value in values.items():
        found = [expression.replace(name, value) for expression in found]
    return found


def test_dashboard_shows_something(monitored: Monitored) -> None:
    for expression in expressions():
        assert "$" not in expression
        wait_for(lambda: monitored.query(expression), f"a result of {expression}", 10)


def test_dashboard_is_well_formed() -> None:
    panels = DASHBOARD["panels"]
    assert len({panel["id"] for panel in panels}) == len(panels)
    taken: set[tuple[int, int]] = set()
    for panel in panels:
        place = panel["gridPos"]
        cells = {
            (place["x"] + column, place["y"] + row)
            for column in range(place["w"])
            for row in range(place["h"])
        }
        assert not cells & taken and max(cells)[0] < 24, panel["title"]
        taken |= cells
        assert panel["datasource"]["uid"] == "${datasource}"
