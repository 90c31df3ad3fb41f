"""A unit that starts before its network: without an address, which it gets later.

Its page says so, and the first alert comes over the new address. Nothing is shortened: the DHCP
client asks every three seconds.
"""

from simulation import gateway
from simulation.scenario import Scene, Setup

SETUP = Setup(address=None, tv_power="on", tv_input="1.0.0.0")
LEASED = "10.87.33.77"


def play(scene: Scene) -> None:
    scene.expect_document(alert_area="No Network Connection")
    scene.expect_call("udhcpc", "-t", "30", "-A", "30", "-q")
    scene.do("the network is there, and leases addresses", scene.unit.start_dhcp)
    scene.expect(
        f"the unit has the address {LEASED}", lambda: scene.view.address() == LEASED, deadline=20
    )
    scene.expect_document(alert_area=LEASED)
    scene.expect(
        "the browser has started anew, now with the network",
        lambda: len(scene.calls("qt-webkit-kiosk")) == 2,
    )
    scene.send("roll call", gateway.roll_call(), is_datagram=True)
    scene.expect_records(2, 39, 47)
    scene.send("detail alert", gateway.detail_alert("STRUCTURE FIRE", turnout_end=60))
    scene.expect_document(alert_type="hdtv_alert", alert_area="STRUCTURE FIRE", turnout_end="60")
    scene.send("end of the alert", gateway.detail_alert(""))
    scene.expect_document(alert_area="", alert_time="0")
