#!/usr/bin/python3
"""The commissioning page in headless Chromium against a daemon in a private network namespace: a real
bootpc's device appears, the form assigns it an address (refused without the token), a real TFTP download
shows its progress, and with allow_changes off the page offers no change and the API refuses one.
Usage: web_page_test.py DAEMON_BINARY [SCREENSHOT.png]; exits 77 (skipped) without root or a browser."""
import json, os, re, shutil, subprocess, sys, tempfile, time, urllib.request

SKIP = 77
PEER_MAC = "02:77:42:00:00:32"
PORT = 8069


def skip(reason):
    print("SKIPPED: " + reason)
    sys.exit(SKIP)


if os.geteuid() != 0:
    skip("needs root for the network namespaces")
if not shutil.which("chromium") or not shutil.which("chromedriver"):
    skip("needs chromium and chromium-driver")
try:
    from selenium import webdriver
    from selenium.common.exceptions import ElementNotInteractableException, StaleElementReferenceException
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError:
    skip("needs python3-selenium")

# Everything runs in a network namespace of its own: the daemon's ports, the browser and the peer.
if os.environ.get("VANTREL_WEB_TEST_INSIDE") != "1":
    os.environ["VANTREL_WEB_TEST_INSIDE"] = "1"
    os.execvp("unshare", ["unshare", "-n", sys.executable] + sys.argv)

binary = sys.argv[1]
screenshot = sys.argv[2] if len(sys.argv) > 2 else None
peer = "vweb-%d" % os.getpid()
work = tempfile.mkdtemp(prefix="vantrel-web-")
os.chmod(work, 0o755)


def sh(command, check=False):
    result = subprocess.run(command, shell=True, capture_output=True, text=True, timeout=30)
    if check and result.returncode != 0:
        raise SystemExit("setup failed: %s: %s" % (command, result.stderr))
    return result


def bootpc():
    return sh("ip netns exec %s timeout 20 bootpc --dev vweb1 --returniffail --timeoutwait 4 2>&1" % peer).stdout


def write_config(allow_changes):
    with open(os.path.join(work, "netd.toml"), "w") as config:
        config.write('[control]\nsocket = "netd.sock"\n[web]\nlisten = "127.0.0.1:%d"\nallow_changes = %s\n'
                     '[tftp]\n[[tftp.home]]\npath = "boot"\n[bootp]\nboot_server = "10.77.42.1"\n'
                     'hosts_file = "hosts.csv"\n' % (PORT, "true" if allow_changes else "false"))


def daemon_log():
    return open(os.path.join(work, "daemon.log")).read()


def start_daemon():
    daemon = subprocess.Popen([binary, "--config", os.path.join(work, "netd.toml")],
                              stderr=open(os.path.join(work, "daemon.log"), "a"))
    for _ in range(100):
        text = daemon_log()
        if "Web page on" in text.split("vantrel-netd 2")[-1]:
            token = re.findall(r"changes need the token ([0-9a-f]+)", text)
            return daemon, token[-1] if token else None
        time.sleep(0.05)
    raise SystemExit("the daemon did not start: " + daemon_log())


def stop(daemon):
    daemon.terminate()
    assert daemon.wait(timeout=10) == 0, "the daemon did not stop cleanly"


def browser():
    options = webdriver.ChromeOptions()
    for argument in ["headless", "no-sandbox", "disable-gpu", "disable-quic", "no-first-run", "disable-sync",
                     "disable-background-networking", "disable-component-update", "window-size=1200,800",
                     "user-data-dir=" + tempfile.mkdtemp(dir=work)]:
        options.add_argument("--" + argument)
    driver = webdriver.Chrome(service=Service(executable_path="/usr/bin/chromedriver"), options=options)
    driver.set_page_load_timeout(20)
    driver.get("http://127.0.0.1:%d/" % PORT)
    return driver


def wait(driver, condition, what, seconds=10):
    try:
        # The page rebuilds its tables on every refresh: an element found just before may be gone.
        return WebDriverWait(driver, seconds, poll_frequency=0.1,
                             ignored_exceptions=[StaleElementReferenceException]).until(lambda _: condition())
    except Exception:
        raise AssertionError("page never showed " + what + "; it shows: " + driver.find_element(By.TAG_NAME, "body").text)


def device_row(driver):
    return next(iter(driver.find_elements(By.CSS_SELECTOR, 'tr[data-hardware="%s"]' % PEER_MAC)), None)


def retry(action, what, exceptions=(StaleElementReferenceException,)):
    """Runs action again while a refresh of the page replaces the elements it works on."""
    for _ in range(20):
        try:
            return action()
        except exceptions:
            time.sleep(0.1)
    raise AssertionError(what + " kept changing")


def row_text(driver):
    """The device row's text ("" while there is none)."""
    return retry(lambda: getattr(device_row(driver), "text", ""), "the device row")


def fill(driver, fields):
    """Types into the device row's inputs and clicks Assign."""
    def once():
        row = device_row(driver)
        for selector, text in fields:
            row.find_element(By.CSS_SELECTOR, selector).send_keys(text)
        row.find_element(By.CSS_SELECTOR, "button.assign").click()
    retry(once, "the device row under the form", (StaleElementReferenceException, ElementNotInteractableException))


def main():
    sh("ip link set lo up && ip netns add {0} && ip link add vweb0 type veth peer name vweb1 netns {0} && "
       "ip addr add 10.77.42.1/24 dev vweb0 && ip link set vweb0 up && ip route add 255.255.255.255/32 dev vweb0 && "
       "ip -n {0} link set lo up && ip -n {0} link set vweb1 address {1} && ip -n {0} link set vweb1 up && "
       "ip -n {0} addr add 10.77.42.9/24 dev vweb1 && ip -n {0} route add 255.255.255.255/32 dev vweb1"
       .format(peer, PEER_MAC), check=True)
    os.makedirs(os.path.join(work, "boot"))
    # Near the largest file TFTP moves intact, so that the download runs for seconds.
    image = os.urandom(4000 * 512 + 100)
    with open(os.path.join(work, "boot", "image.bin"), "wb") as file:
        file.write(image)
    write_config(True)
    daemon, token = start_daemon()
    driver = browser()
    try:
        assert "IPADDR" not in bootpc()
        wait(driver, lambda: "no configuration" in row_text(driver), "the new device")

        fill(driver, [("input.ip", "10.77.42.50"), ("input.name", "press-3")])
        wait(driver, lambda: "wrong or missing token" in driver.find_element(By.ID, "message").text, "the refusal")
        assert "10.77.42.50" not in row_text(driver)

        driver.find_element(By.ID, "token").send_keys(token)
        fill(driver, [("input.ip", "10.77.42.50")])
        wait(driver, lambda: "10.77.42.50" in row_text(driver), "the assignment")
        assert "10.77.42.50,\n" in open(os.path.join(work, "hosts.csv")).read()
        assert "IPADDR='10.77.42.50'" in bootpc()

        # A real client's download, long enough for the page to see it run.
        client_folder = tempfile.mkdtemp(dir=work)
        client = subprocess.Popen("cd %s && ip netns exec %s timeout 60 tftp -m binary 10.77.42.1 -c get image.bin"
                                  % (client_folder, peer), shell=True)
        wait(driver, lambda: driver.find_elements(By.CSS_SELECTOR, "tr.transfer progress"), "the transfer running")
        bar = lambda: driver.find_element(By.CSS_SELECTOR, "tr.transfer progress")
        wait(driver, lambda: 0 < float(bar().get_attribute("value")) < float(bar().get_attribute("max")) == len(image),
             "the download's progress")
        assert client.wait(timeout=60) == 0
        wait(driver, lambda: any("image.bin" in row.text and "ok" in row.find_elements(By.TAG_NAME, "td")[1]
                                 .get_attribute("class") for row in driver.find_elements(By.CSS_SELECTOR, "tr.finished")),
             "the finished transfer")
        if screenshot:
            driver.save_screenshot(screenshot)
    finally:
        driver.quit()
        stop(daemon)

    # With allow_changes off: no form, and the API refuses even with a token.
    write_config(False)
    daemon, _ = start_daemon()
    driver = browser()
    try:
        wait(driver, lambda: "host %s -> 10.77.42.50" % PEER_MAC in driver.find_element(By.ID, "settings").text,
             "the assignment kept over the restart")
        request = urllib.request.Request("http://127.0.0.1:%d/api/assign" % PORT, method="POST",
                                         data=json.dumps({"hardware": PEER_MAC, "ip": "10.77.42.51"}).encode(),
                                         headers={"X-Token": token})
        try:
            urllib.request.urlopen(request, timeout=5)
            raise AssertionError("a change went through with allow_changes off")
        except urllib.error.HTTPError as error:
            assert error.code == 403 and "allow_changes" in error.read().decode()
        assert "IPADDR='10.77.42.50'" in bootpc()
        wait(driver, lambda: "10.77.42.50" in row_text(driver), "the device")
        assert not driver.find_elements(By.CSS_SELECTOR, "button.assign")
        status = json.load(urllib.request.urlopen("http://127.0.0.1:%d/api/status" % PORT, timeout=5))
        assert {"hardware": PEER_MAC, "ip": "10.77.42.50", "name": "", "source": "hosts file"} in status["assignments"]
    finally:
        driver.quit()
        stop(daemon)


try:
    main()
    print("PASSED")
except BaseException:
    print(daemon_log()[-3000:])
    raise
finally:
    sh("ip netns del " + peer)
    shutil.rmtree(work, ignore_errors=True)
