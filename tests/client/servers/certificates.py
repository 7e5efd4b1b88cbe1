"""The certificates of the test servers, made anew each time; their keys are good for nothing else."""

import secrets
import subprocess


def openssl(directory, *arguments):
    subprocess.run(
        ["/usr/bin/openssl", *arguments],
        cwd=directory,
        check=True,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL,
    )


EC_KEY = ("-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-256")
RSA_KEY = ("-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:2048")


def make_key(directory, name, kind=EC_KEY):
    openssl(directory, "genpkey", *kind, "-out", name)


def make_authority(directory, name):
    """NAME.pem, and NAME.der as Windows takes it, with its key NAME.key."""
    # Wine misreads one ECDSA signature of an authority in some thirty: one whose numbers are shorter.
    make_key(directory, f"{name}.key", RSA_KEY)
    # Wine takes the first authority of a name, and the store may still have one of another run.
    number = secrets.token_hex(8)
    openssl(
        directory, "req", "-x509", "-new", "-key", f"{name}.key", "-out", f"{name}.pem",
        "-days", "30", "-subj", f"/CN=Test authority {name} {number}",
        "-addext", "keyUsage=critical,keyCertSign",
    )  # fmt: skip
    openssl(directory, "x509", "-in", f"{name}.pem", "-outform", "DER", "-out", f"{name}.der")


def make_certificate(directory, name, authority, host="localhost", days=30):
    """NAME.pem for a host; all of them have the key key.pem."""
    (directory / f"{name}.ext").write_text(
        f"subjectAltName=DNS:{host}\nbasicConstraints=critical,CA:FALSE\nextendedKeyUsage=serverAuth\n"
    )
    openssl(directory, "req", "-new", "-key", "key.pem", "-out", f"{name}.csr", "-subj", f"/CN={host}")
    openssl(
        directory, "x509", "-req", "-in", f"{name}.csr", "-CA", f"{authority}.pem",
        "-CAkey", f"{authority}.key", "-CAcreateserial", "-days", str(days),
        "-extfile", f"{name}.ext", "-out", f"{name}.pem",
    )  # fmt: skip


def make_all(directory):
    make_key(directory, "key.pem")
    # Whoever trusts an authority already gives it.
    if not (directory / "trusted.key").exists():
        make_authority(directory, "trusted")
    make_authority(directory, "unknown")
    make_certificate(directory, "good", "trusted")
    # It ended a day before it began.
    make_certificate(directory, "expired", "trusted", days=-1)
    make_certificate(directory, "foreign", "unknown")
    make_certificate(directory, "misnamed", "trusted", host="elsewhere.test")
