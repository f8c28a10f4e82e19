"""What it costs that little is lost when the power goes: bytes on the card for a byte recorded, and flushes a minute."""

from .. import footage
from ..machine import check, sparse
from ..write_log import WriteLog, logged_card

START = 1777809600  # 2026-05-03 12:00:00 UTC
CARD_BYTES = 1 << 30
RATES = {"main.frames": 4000000, "sub.frames": 512000}  # bits a second, audio included
MOST_BYTES_A_BYTE = 1.03
MOST_SYNCS_A_MINUTE = 14


def run(bench, kernel="", most_syncs=MOST_SYNCS_A_MINUTE):
    """kernel: a step of the host that comes first."""
    minutes = 10 if bench.long else 4
    image, log_path = sparse(bench.image("card"), CARD_BYTES), sparse(bench.work / "writes.log", 0)
    frames = {name: bench.work / name for name in RATES}
    for name, bits_a_second in RATES.items():
        footage.fatten(bench.footage[name], frames[name], bits_a_second // 8 * footage.SECONDS)
    bench.boot(f"host {kernel} log /dev/sda deadline {300 * minutes} format mount pairs /data/main.frames /data/sub.frames {START} 1 "
               f"{60 * minutes} unmount", logged_card(image, log_path), files=frames, seconds=300 * minutes)
    log = WriteLog(log_path, CARD_BYTES)
    marks = [number for number, entry in enumerate(log.entries) if entry.mark]
    begin = next(number for number in marks if log.entries[number].mark == "phase create")
    closed = [number for number in marks if log.entries[number].mark.startswith("closed")]
    recorded = sum(int(log.entries[number].mark.split()[4]) for number in closed)
    written, _ = log.written(begin, len(log.entries))
    _, flushes = log.written(begin, closed[-1])
    bytes_a_byte, syncs_a_minute = written / recorded, flushes / len(RATES) / minutes
    said = (f"{recorded * 8 / 60 / minutes / 1e6:.2f} Mbit/s for {minutes} min: {bytes_a_byte:.4f} bytes on the card a "
            f"byte, {syncs_a_minute:.1f} syncs a minute and stream")
    check(bytes_a_byte <= MOST_BYTES_A_BYTE and syncs_a_minute <= most_syncs, said)
    return said
