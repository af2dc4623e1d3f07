# Quillorn — build, run, test and benchmark on a Debian machine.
#   make run    installs what is missing, builds and launches Quillorn
#   make test   installs what is missing, builds with sanitizers and runs every test

BUILD       ?= build/release
TEST_BUILD  ?= build/test
BENCH_BUILD ?= build/bench
PREFIX      ?= /usr/local
JOBS        ?= $(shell nproc)

# Debian packages the build, the tests and the benchmarks need: the toolchain and
# libraries; the X server and tools the window tests drive (xvfb, xauth, xdotool,
# x11-utils for xprop, x11-xkb-utils for setxkbmap); what the fault tests mount and inject with (bindfs, fusefat
# and dosfstools for a FAT volume, mount for losetup, util-linux for setpriv and
# prlimit, e2fsprogs for chattr and mkfs.ext4, strace); metadata tools (acl, attr);
# the desktop's trash client (gio from libglib2.0-bin, its GIO module gvfs,
# gvfs-daemons, dbus-daemon for dbus-run-session); GIO's headers (libglib2.0-dev)
# for the applications of a MIME type and "Open with"; shared-mime-info, the
# MIME database the editor picks a file's syntax colouring by; unzip for archives; rsync
# and time for the copy benchmark; python3 and desktop-file-utils for the install
# check and the index of the test applications' MIME types.
PACKAGES := cmake g++ make pkg-config ninja-build clang-format \
	qt6-base-dev qt6-base-dev-tools libgl-dev libicu-dev libssl-dev libglib2.0-dev \
	libgtest-dev libgmock-dev libbenchmark-dev \
	xvfb xauth xdotool x11-utils x11-xkb-utils \
	bindfs fusefat dosfstools mount util-linux e2fsprogs strace acl attr \
	libglib2.0-bin gvfs gvfs-daemons dbus-daemon \
	shared-mime-info unzip rsync time python3 desktop-file-utils

# Only `make bench` installs these: reference programs the benchmarks measure against.
BENCH_PACKAGES := krusader openssl

.PHONY: deps bench-deps build run test format-check bench install clean

# $(call install_missing,<packages>): installs those not installed yet.
define install_missing
	@missing=""; \
	for p in $(1); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q 'install ok installed' || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  sudo=""; [ "$$(id -u)" -eq 0 ] || sudo=sudo; \
	  echo "Installing:$$missing"; \
	  $$sudo apt-get update -qq && \
	  $$sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $$missing; \
	fi
endef

deps:
	$(call install_missing,$(PACKAGES))

bench-deps: deps
	$(call install_missing,$(BENCH_PACKAGES))

build: deps
	@[ -f $(BUILD)/build.ninja ] || cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUILLORN_TESTS=OFF -DCMAKE_INSTALL_PREFIX=$(PREFIX)
	cmake --build $(BUILD) -j $(JOBS)

run: build
	@if [ -z "$$DISPLAY" ] && [ -z "$$WAYLAND_DISPLAY" ]; then \
	  echo "make run: no display (neither DISPLAY nor WAYLAND_DISPLAY is set), so Quillorn cannot open its window; 'make test' runs without one."; \
	  exit 1; \
	fi
	./$(BUILD)/src/app/quillorn

# Every tracked C++ file as the checked-in .clang-format lays it out.
format-check: deps
	@git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror

test: deps format-check
	@[ -f $(TEST_BUILD)/build.ninja ] || cmake -S . -B $(TEST_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DQUILLORN_SANITIZE=ON
	cmake --build $(TEST_BUILD) -j $(JOBS)
	cd $(TEST_BUILD) && ctest --output-on-failure -j $(JOBS)

bench: bench-deps
	@[ -f $(BENCH_BUILD)/build.ninja ] || cmake -S . -B $(BENCH_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Release -DQUILLORN_TESTS=OFF -DQUILLORN_BENCH=ON
	cmake --build $(BENCH_BUILD) -j $(JOBS)
	@set -e; for b in $(BENCH_BUILD)/bench/bench_*; do [ -f "$$b" ] && [ -x "$$b" ] || continue; echo "== $$b"; "$$b"; done
	@set -e; for s in bench/*.sh; do [ -f "$$s" ] || continue; echo "== $$s"; BENCH_BUILD=$(BENCH_BUILD) bash "$$s"; done

install: build
	cmake --install $(BUILD) --prefix $(PREFIX)

clean:
	rm -rf build
