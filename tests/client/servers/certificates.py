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


# `openssl x509` takes no dates before release 3.4, and since then no negative number of days.
AUTHORITY = """
[ca]
default_ca = authority
[authority]
database = issued.txt
new_certs_dir = .
default_md = sha256
rand_serial = yes
policy = any
[any]
commonName = supplied
"""


def make_certificate(directory, name, authority, host="localhost", validity=("-days", "30")):
    """NAME.pem for a host; all of them have the key key.pem."""
    (directory / f"{name}.ext").write_text(
        f"subjectAltName=DNS:{host}\nbasicConstraints=critical,CA:FALSE\nextendedKeyUsage=serverAuth\n"
    )
    # Nothing is known of certificates issued before, so any number of them may have one subject.
    (directory / "issued.txt").write_text("")
    (directory / "authority.cnf").write_text(AUTHORITY)
    openssl(directory, "req", "-new", "-key", "key.pem", "-out", f"{name}.csr", "-subj", f"/CN={host}")
    openssl(
        directory, "ca", "-batch", "-config", "authority.cnf", "-notext",
        "-cert", f"{authority}.pem", "-keyfile", f"{authority}.key", "-in", f"{name}.csr",
        *validity, "-extfile", f"{name}.ext", "-out", f"{name}.pem",
    )  # fmt: skip


def make_all(directory):
    make_key(directory, "key.pem")
    # Whoever trusts an authority already gives it.
    if not (directory / "trusted.key").exists():
        make_authority(directory, "trusted")
    make_authority(directory, "unknown")
    make_certificate(directory, "good", "trusted")
    long_ago = ("-startdate", "20200101000000Z", "-enddate", "20200131000000Z")
    make_certificate(directory, "expired", "trusted", validity=long_ago)
    make_certificate(directory, "foreign", "unknown")
    make_certificate(directory, "misnamed", "trusted", host="elsewhere.test")
