# Quillorn — build, run, test and benchmark on a Debian machine.
#   make run    installs the missing packages running needs, builds and launches Quillorn
#   make test   also those the tests need, then builds with sanitizers and runs every test

BUILD       ?= build/release
TEST_BUILD  ?= build/test
BENCH_BUILD ?= build/bench
PREFIX      ?= /usr/local
JOBS        ?= $(shell nproc)

# Debian packages, in two lists: what building and running Quillorn needs, which
# `make run` and `make install` install, and what the tests need besides, which
# `make test` installs too. SKIP_DEPS=1 installs nothing (another distribution,
# or packages installed by hand); scripts/install-packages.sh says what to do
# when it cannot install them.
#
# Running: the toolchain, Qt and the libraries; GIO's headers (libglib2.0-dev)
# for the applications of a MIME type and "Open with"; PCRE2 (libpcre2-dev) for
# the regular expressions of the search inside files; rsvg-convert
# (librsvg2-bin) to render the PNG icons; and at run time xdg-utils (xdg-open,
# xdg-mime), Qt's Wayland platform, unzip for archives and shared-mime-info, the
# MIME database the editor picks a file's syntax colouring by; libarchive's headers
# (libarchive-dev, which brings the library) for tar, 7z, ISO, cpio and RAR.
RUN_PACKAGES := cmake g++ make pkg-config ninja-build \
	qt6-base-dev qt6-base-dev-tools libgl-dev libicu-dev libssl-dev libglib2.0-dev libpcre2-dev librsvg2-bin \
	libarchive-dev xdg-utils qt6-wayland unzip shared-mime-info

# Testing: GoogleTest; the X server and tools the window tests drive (xvfb,
# xauth, xdotool, x11-utils, x11-xkb-utils); what the fault tests mount and
# inject with (bindfs, fusefat and dosfstools for a FAT volume, mount for
# losetup, util-linux for setpriv and prlimit, e2fsprogs for chattr and
# mkfs.ext4, strace); metadata tools (acl, attr); the desktop's trash client and
# session bus (gio and gdbus from libglib2.0-bin, gvfs, gvfs-daemons, dbus-daemon
# for dbus-run-session); python3 for the ZIP fixtures and the install check; and
# what checks the installed files: desktop-file-utils, appstream (appstreamcli),
# man-db, binutils (readelf), gtk-update-icon-cache; the accessibility bus
# (at-spi2-core) and python3-pyatspi for the screen-reader test; python3-dbus
# and python3-gi for the stand-in UDisks2 on the tests' private buses. The
# clang-format release the format check needs is installed where this Debian
# has it.
TEST_PACKAGES := libgtest-dev libgmock-dev \
	xvfb xauth xdotool x11-utils x11-xkb-utils \
	bindfs fusefat dosfstools mount util-linux e2fsprogs strace acl attr \
	libglib2.0-bin gvfs gvfs-daemons dbus-daemon \
	python3 libarchive-tools desktop-file-utils appstream man-db binutils gtk-update-icon-cache \
	at-spi2-core python3-pyatspi python3-dbus python3-gi

# Only `make bench` installs these: the benchmark library, reference programs the
# benchmarks measure against (ripgrep and grep for the search inside files),
# rsync and time for the copy benchmark.
BENCH_PACKAGES := libbenchmark-dev krusader openssl rsync time ripgrep grep

# The clang-format release the checked-in .clang-format is written for.
CLANG_FORMAT_VERSION := $(shell sed -n 's/^\# Laid out for clang-format \([0-9][0-9]*\).*/\1/p' .clang-format)

INSTALL_PACKAGES := scripts/install-packages.sh

.PHONY: deps test-deps bench-deps build run test format-check bench install clean

deps:
	@$(INSTALL_PACKAGES) $(RUN_PACKAGES)

test-deps: deps
	@$(INSTALL_PACKAGES) $(TEST_PACKAGES)
	@$(INSTALL_PACKAGES) --if-available clang-format-$(CLANG_FORMAT_VERSION)

bench-deps: test-deps
	@$(INSTALL_PACKAGES) $(BENCH_PACKAGES)

build: deps
	@[ -f $(BUILD)/build.ninja ] || cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUILLORN_TESTS=OFF -DCMAKE_INSTALL_PREFIX=$(PREFIX)
	cmake --build $(BUILD) -j $(JOBS)

run: build
	@if [ -z "$$DISPLAY" ] && [ -z "$$WAYLAND_DISPLAY" ]; then \
	  echo "make run: no display (neither DISPLAY nor WAYLAND_DISPLAY is set), so Quillorn cannot open its window; 'make test' runs without one."; \
	  exit 1; \
	fi
	./$(BUILD)/src/app/quillorn

# Every tracked C++ file as the checked-in .clang-format lays it out; skipped,
# with a note, when only another clang-format release is installed.
format-check: test-deps
	@scripts/format-check.sh

test: test-deps format-check
	@[ -f $(TEST_BUILD)/build.ninja ] || cmake -S . -B $(TEST_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DQUILLORN_SANITIZE=ON
	cmake --build $(TEST_BUILD) -j $(JOBS)
	cd $(TEST_BUILD) && ctest --output-on-failure -j $(JOBS)

bench: bench-deps
	@[ -f $(BENCH_BUILD)/build.ninja ] || cmake -S . -B $(BENCH_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Release -DQUILLORN_TESTS=OFF -DQUILLORN_BENCH=ON
	cmake --build $(BENCH_BUILD) -j $(JOBS)
	@set -e; for b in $(BENCH_BUILD)/bench/bench_*; do [ -f "$$b" ] && [ -x "$$b" ] || continue; echo "== $$b"; "$$b"; done
	@set -e; for s in bench/*.sh; do [ -f "$$s" ] || continue; echo "== $$s"; BENCH_BUILD=$(BENCH_BUILD) bash "$$s"; done

# Stripped; DESTDIR=… stages it for a package. Under /usr or /usr/local without
# DESTDIR the desktop's caches of entries and icons are refreshed too.
install: build
	DESTDIR="$(DESTDIR)" cmake --install $(BUILD) --prefix $(PREFIX) --strip

clean:
	rm -rf build
