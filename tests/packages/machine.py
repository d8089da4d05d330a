"""A Debian machine for tests of packages: a clean root of a release that systemd has booted, in namespaces of its own. What it
writes is in memory and is lost at its end. Only processes started here are ended."""
import os
import pathlib
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
# Runs in new namespaces of mounts and processes. The cgroup is that of the machine alone.
BOOT = r"""
layer=/mnt
mount -t tmpfs tmpfs $layer
mkdir $layer/upper $layer/work $layer/root
mount -t overlay overlay -o "lowerdir=$1,upperdir=$layer/upper,workdir=$layer/work" $layer/root
cd $layer/root
# The kernel's settings are the host's: the machine may only read them.
mount -t proc proc proc
mount --bind proc/sys proc/sys
mount -o remount,bind,ro proc/sys
mount -t sysfs -o ro sysfs sys
mount -t cgroup2 cgroup2 sys/fs/cgroup
for folder in tmp run dev; do mount -t tmpfs -o mode=755 tmpfs $folder; done
chmod 1777 tmp
for device in null zero full random urandom tty; do touch dev/$device; mount --bind /dev/$device dev/$device; done
mkdir dev/pts dev/shm
mount -t devpts devpts dev/pts -o newinstance,ptmxmode=0666
ln -s pts/ptmx dev/ptmx
ln -s /proc/self/fd dev/fd
touch dev/network_of_the_host
mount --bind /proc/$HOST_PROCESS/ns/net dev/network_of_the_host
mkdir root/packages
mount --bind "$2" root/packages
pivot_root . mnt
exec chroot . sh -c 'umount -l /mnt; exec env -i container=other PATH=/usr/sbin:/usr/bin:/sbin:/bin \
    /lib/systemd/systemd --system --unit=multi-user.target --log-target=journal --show-status=no' < /dev/null
"""
# Outside of the machine: it gives the machine a cgroup and removes that afterwards.
AROUND = r"""
cgroups=$(mktemp -d)
mount -t cgroup2 cgroup2 $cgroups
own=$cgroups/mpls_vpn_packages.$$
mkdir $own
echo $$ > $own/cgroup.procs
export HOST_PROCESS=$$
# It ends by a signal, which unshare cannot pass on to itself and reports.
unshare --cgroup --mount --pid --net --ipc --uts --fork --kill-child bash -euc "$BOOT" boot "$@" \
    2> >(grep -v "sigprocmask unblock failed" >&2) || true
echo $$ > $cgroups/cgroup.procs
find $own -depth -type d -exec rmdir {} +
umount $cgroups
rmdir $cgroups
"""
# Before apt and apt-get in PATH: they reach the mirrors of the host, while everything else has the network of the machine alone.
APT = """\
#!/bin/sh
exec nsenter --net=/dev/network_of_the_host /usr/bin/${0##*/} "$@"
"""
ENVIRONMENT = ["env", "-i", "PATH=/usr/local/sbin:/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root", "LANG=C.UTF-8", "DEBIAN_FRONTEND=noninteractive"]


def debian_root(release, *packages):
    words = " ".join(packages)
    return subprocess.run(["bash", "-euc", f'. "{ROOT}/scripts/lib.sh"; debian_root {release} {words}'], check=True, text=True,
                          stdout=subprocess.PIPE).stdout.strip()


def wait_until(what, condition, seconds=30):
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError(f"{what}: not within {seconds} s")
        time.sleep(0.2)


def children(pid):
    return pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()


class Machine:
    """`folder` is /root/packages in the machine."""

    def __init__(self, release, folder):
        self.process = subprocess.Popen(
            ["unshare", "--mount", "bash", "-euc", AROUND, "around", debian_root(release, "systemd-sysv", "passwd"), str(folder)],
            env=dict(os.environ, BOOT=BOOT), stdin=subprocess.DEVNULL, start_new_session=True)
        try:
            wait_until("the machine's first process", self.find_init)
            wait_until("the start of the machine", self.has_started, 120)
            self.prepare_apt()
        except BaseException:
            self.end()
            raise

    def find_init(self):
        """The child of `unshare`, which is a child of the shell around it; systemd when it has taken its place."""
        assert self.process.poll() is None, "the machine ended"
        self.init = None
        for unshare in children(self.process.pid):
            for pid in children(unshare):
                if pathlib.Path(f"/proc/{pid}/comm").read_text().strip() == "systemd":
                    self.init = pid
        return self.init

    def has_started(self):
        return self.run("systemctl is-system-running", check=False).stdout.strip() in ("running", "degraded")

    def prepare_apt(self):
        """Documented commands of apt run as they are, without questions."""
        for name in "apt", "apt-get":
            self.write(f"/usr/local/sbin/{name}", APT)
            self.run(f"chmod 755 /usr/local/sbin/{name}")
        self.run("echo 'APT::Get::Assume-Yes \"true\";' > /etc/apt/apt.conf.d/90test")
        self.write("/etc/resolv.conf", pathlib.Path("/etc/resolv.conf").read_text())
        self.run("apt-get -q update")

    def run(self, command, check=True):
        """Runs a command of the shell in the folder of the packages."""
        result = subprocess.run(
            ["nsenter", "--target", self.init, "--mount", "--pid", "--ipc", "--uts", "--cgroup", "--net", "--root",
             *ENVIRONMENT, "bash", "-euc", "cd /root/packages; " + command], check=False, text=True, capture_output=True, timeout=600)
        if check and result.returncode != 0:
            raise AssertionError(f"{command}: status {result.returncode}\n{result.stdout}\n{result.stderr}")
        return result

    def output(self, command):
        return self.run(command).stdout.strip()

    def write(self, path, text):
        subprocess.run(["nsenter", "--target", self.init, "--mount", "--root", "tee", path], input=text, text=True, check=True,
                       stdout=subprocess.DEVNULL)

    def property(self, unit, name):
        return self.output(f"systemctl show --value -p {name} {unit}")

    def log(self):
        return self.run("journalctl --no-pager -o cat -u snmpd -u mpls_vpn_mib -u mpls_vpn_snmp | tail -60", check=False).stdout

    def end(self):
        if getattr(self, "init", None):
            subprocess.run(["kill", "-KILL", self.init], check=False)
        else:
            self.process.terminate()
        self.process.wait(timeout=60)

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        if kind is not None:
            sys.stderr.write("--- journal\n" + self.log())
        self.end()
