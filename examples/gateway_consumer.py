"""Keeps what a gateway takes in a database: nothing is missed, and nothing is there twice.
Usage: gateway_consumer.py GATEWAY HOST [PORT]"""

import signal
import sqlite3
import sys

from kestrinblesdk.gateway import Consumer, Record

gateway, host, *port = sys.argv[1:]
database = sqlite3.connect("frames.db")
database.execute(
    "create table if not exists frame (log, number, at, reader, data, primary key (log, number))"
)


def keep(record: Record) -> None:
    with database:
        row = (record.log, record.number, record.at, record.reader, record.data)
        database.execute("insert into frame values (?, ?, ?, ?, ?)", row)
    print(record.number, record.name, record.data.hex(), flush=True)


consumer = Consumer(gateway, "database")
consumer.restore(dict(database.execute("select log, max(number) + 1 from frame group by log")))
consumer.on_record = keep
consumer.on_gap = lambda gap: print(f"lost: {gap.first} to {gap.last}, {gap.reason}", flush=True)
signal.signal(signal.SIGTERM, lambda *_: consumer.stop())
consumer.run(host, int(port[0]) if port else None)
