"""A consumer in Python as an application has it: a line of JSON for each record, then its state.

python_consumer.py GATEWAY NAME STATE PORT"""

from __future__ import annotations

import json
import signal
import sys

from kestrinblesdk.gateway import Consumer, Record


def write_down(record: Record) -> None:
    line = {"log": record.log, "n": record.number}
    if record.gap is None:
        line |= {"name": record.name, "bytes": bytes(record.data).hex()}
    else:
        line |= {"gap": record.gap.reason}
    print(json.dumps(line), flush=True)


def main() -> None:
    gateway, name, state, port = sys.argv[1:]
    consumer = Consumer(gateway, name, state=state)
    consumer.on_record = write_down
    consumer.on_trouble = lambda text: print(text, file=sys.stderr)
    signal.signal(signal.SIGTERM, lambda *_: consumer.stop())
    consumer.run("127.0.0.1", int(port))
    summary = f"taken {consumer.taken}, repeats {consumer.repeats}, lost {consumer.lost}"
    print(summary, file=sys.stderr)


main()
