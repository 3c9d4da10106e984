"""A line between the service and its server that is long, and that can be made to fail: connections to a
port of its own on 127.0.0.1 are passed on to the server's port there.

It has a thread of its own; every method may be called from any other."""

import asyncio
import socket
import struct
import threading

TO_SERVER, TO_CLIENT = 0, 1


class _Connection:
    """What is passed on in both directions. Each piece leaves when its time has come."""

    def __init__(self, line, client):
        self.line, self.client, self.server = line, client, None
        self.is_deaf = False  # its client hears nothing any more
        self.passes = [None, None]  # bytes that still may, in each direction, before the end
        self.tasks = []

    async def run(self, server_port):
        await asyncio.sleep(2 * self.line.one_way)  # the first messages of a connection
        await self.line.open.wait()
        try:
            self.server = await asyncio.open_connection("127.0.0.1", server_port)
        except OSError:
            self.reset()
            return
        ends = ((self.client[0], self.server[1]), (self.server[0], self.client[1]))
        for direction, (reader, writer) in enumerate(ends):
            pieces = asyncio.Queue()
            self.tasks.append(asyncio.create_task(self.read(reader, pieces)))
            self.tasks.append(asyncio.create_task(self.write(direction, pieces, writer)))
        # What was read may still be under way when its reader has ended.
        await asyncio.wait(self.tasks[1::2], return_when=asyncio.FIRST_COMPLETED)
        while self.is_deaf:
            await asyncio.sleep(0.1)  # until the client gives up
            if self.tasks[0].done():
                break
        self.reset()

    async def read(self, reader, pieces):
        data = b"?"
        while data:
            try:
                data = await reader.read(1 << 16)
            except OSError:
                data = b""
            pieces.put_nowait((asyncio.get_running_loop().time() + self.line.one_way, data))

    async def write(self, direction, pieces, writer):
        data = b"?"
        while data:
            due, data = await pieces.get()
            await asyncio.sleep(max(0, due - asyncio.get_running_loop().time()))
            await self.line.open.wait()
            if self.is_deaf and direction == TO_CLIENT:
                continue
            most = self.passes[direction]
            if most is not None:
                data = data[:most]
                self.passes[direction] = most - len(data)
            try:
                writer.write(data)
                await writer.drain()
            except OSError:
                return
            if self.passes[direction] == 0:
                return

    def reset(self):
        self.line.connections.pop(self, None)
        for end in filter(None, (self.client, self.server)):
            at_once = struct.pack("ii", 1, 0)
            try:
                end[1].get_extra_info("socket").setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, at_once)
            except OSError:
                pass  # it is closed already
            end[1].transport.abort()
        for task in self.tasks:
            task.cancel()


class BadLine:
    """`round_trip`: seconds that a message and its answer spend on the line together."""

    def __init__(self, server_port, round_trip=0.0):
        self.server_port, self.one_way = server_port, round_trip / 2
        self.connections = {}  # in the order in which they came
        self._loop = asyncio.new_event_loop()
        self._is_up = threading.Event()
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()
        self._is_up.wait()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._loop.call_soon_threadsafe(self._loop.stop)
        self._thread.join()

    # --- faults. False where no connection is there that could have one.

    def reset(self, chance):
        """Ends a connection, at any point of the conversation."""
        return self._strike(chance, lambda connection: connection.reset())

    def cut(self, chance):
        """Ends a connection after a few more bytes, which is in the middle of a packet or of a row."""
        def strike(connection):
            connection.passes[chance.choice((TO_SERVER, TO_CLIENT))] = chance.randrange(1, 60)
        return self._strike(chance, strike)

    def swallow(self, chance):
        """From now on the client hears nothing, although both ends of its connection stay up."""
        def strike(connection):
            connection.is_deaf = True
        return self._strike(chance, strike)

    def stall(self, seconds):
        """For so long nothing passes on any connection, and none is made."""
        self._loop.call_soon_threadsafe(self.open.clear)
        self._loop.call_soon_threadsafe(lambda: self._loop.call_later(seconds, self.open.set))

    def _strike(self, chance, strike):
        async def on_one():
            found = [one for one in self.connections if one.server is not None and not one.is_deaf]
            if found:
                strike(chance.choice(found))
            return bool(found)
        return asyncio.run_coroutine_threadsafe(on_one(), self._loop).result()

    # --- the thread

    def _run(self):
        self._loop.run_until_complete(self._listen())
        self._loop.run_forever()
        for connection in list(self.connections):
            connection.reset()
        for task in asyncio.all_tasks(self._loop):
            task.cancel()
        self._server.close()
        self._loop.run_until_complete(asyncio.sleep(0.01))

    async def _listen(self):
        self.open = asyncio.Event()
        self.open.set()
        self._server = await asyncio.start_server(self._accept, "127.0.0.1", 0)
        self.port = self._server.sockets[0].getsockname()[1]
        self._is_up.set()

    async def _accept(self, *client):
        connection = _Connection(self, client)
        self.connections[connection] = True
        await connection.run(self.server_port)
