"""A peer that says what it is told: takes one connection on an address, sends bytes and prints what comes back.

    python3 msdp_speaker.py ADDRESS HEX

The bytes go out at once; then it reads, printing each arrival as a line of hexadecimal digits, until the other
side closes, which it prints as "closed".
"""

import socket
import sys


def main():
    with socket.socket() as listener:
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        listener.bind((sys.argv[1], 639))
        listener.listen(1)
        connection, _ = listener.accept()
    connection.sendall(bytes.fromhex(sys.argv[2]))
    try:
        while data := connection.recv(65536):
            print(data.hex(), flush=True)
    except ConnectionResetError:
        pass
    print("closed", flush=True)


main()
