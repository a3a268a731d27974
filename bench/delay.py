#!/usr/bin/python3
"""A TCP proxy on the loopback that delays what it passes on, in each direction.

usage: delay.py LISTEN-PORT TARGET-PORT MILLISECONDS

Writes a line when it listens. Making a connection to the proxy itself is not delayed.
"""

import asyncio
import sys


async def passing_on(reader, writer, delay):
    """Each chunk leaves `delay` seconds after it came, in order; the end of the stream too."""
    loop = asyncio.get_running_loop()
    chunks = asyncio.Queue()

    async def leave():
        while True:
            due, chunk = await chunks.get()
            await asyncio.sleep(due - loop.time())
            if not chunk:
                break
            writer.write(chunk)
            await writer.drain()

    leaving = asyncio.create_task(leave())
    try:
        while True:
            chunk = await reader.read(65536)
            chunks.put_nowait((loop.time() + delay, chunk))
            if not chunk:
                break
        await leaving
    except ConnectionError:
        leaving.cancel()
    finally:
        writer.close()


async def serve(listen, target, delay):
    async def accept(reader, writer):
        far_reader, far_writer = await asyncio.open_connection("127.0.0.1", target)
        await asyncio.gather(passing_on(reader, far_writer, delay), passing_on(far_reader, writer, delay))

    server = await asyncio.start_server(accept, "127.0.0.1", listen)
    print("listens", flush=True)
    await server.serve_forever()


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    asyncio.run(serve(int(sys.argv[1]), int(sys.argv[2]), float(sys.argv[3]) / 1000))
