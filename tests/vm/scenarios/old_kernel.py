"""A kernel whose FAT driver reserves no space, as old ones: every promise holds, at the cost of more syncs."""

from . import power_cut, sync_cost

MOST_SYNCS_A_MINUTE = 28


def run(bench):
    if bench.guest.target.name == "mipsel" and not bench.long:
        return "left to --vm-long on this processor"
    cuts = {"x86": 250, "mipsel": 100}[bench.guest.target.name] if bench.long else 20
    held = power_cut.run(bench, "old-kernel", cuts)
    for image in bench.work.glob("*.img"):
        image.unlink()
    cost = sync_cost.run(bench, "old-kernel", MOST_SYNCS_A_MINUTE)
    return f"{held}; {cost}"
