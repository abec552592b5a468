#!/usr/bin/env python3
"""sign.py [SERIAL]: lists the certificates that can sign; with a serial number signs a text as
PKCS#7 with that certificate, prints the structure in base64 and lets openssl verify it, which knows
the structures of RSA keys alone. The PIN is the first line of standard input."""

import base64
import subprocess
import sys

import vctk


def verified(structure: bytes) -> bool:
    """For the certificate, too: -CAfile and the authority's certificate, not -noverify."""
    command = "openssl cms -verify -inform DER -noverify -out /dev/null".split()
    return subprocess.run(command, input=structure, check=False).returncode == 0


def main() -> int:
    with vctk.Session(vctk.FILES) as session:
        if len(sys.argv) < 2:
            for certificate in session.certificates():
                print(certificate.subject, certificate.serial, sep="  ")
            return 0
        session.choose(sys.argv[1])
        structure = session.sign_pkcs7("我同意。".encode(), sys.stdin.readline().rstrip("\n"))
        print(base64.b64encode(structure).decode(), flush=True)
        return 0 if verified(structure) else 1


if __name__ == "__main__":
    try:
        sys.exit(main())
    except vctk.Error as error:
        print(error, flush=True)
        sys.exit(1)
