// receiver PORT DOCUMENT LOG
use std::ffi::CStr;
use std::fs::{self, OpenOptions};
use std::io::{self, Read, Write};
use std::net::TcpListener;
use std::os::raw::{c_char, c_void};
use std::time::{SystemTime, UNIX_EPOCH};

const TEXT: usize = 6; // its position in a display alert

// The standard library has no local time; the C library, which it is linked with, does.
extern "C" {
    fn localtime_r(time: *const i64, tm: *mut c_void) -> *mut c_void;
    fn strftime(to: *mut c_char, size: usize, format: *const c_char, tm: *const c_void) -> usize;
}

fn local_time(now: i64) -> String {
    let mut tm = [0u64; 8]; // larger than the C library's
    let mut text = [0 as c_char; 32];
    let format = b"%y-%m-%d %T: \0";
    unsafe {
        localtime_r(&now, tm.as_mut_ptr().cast());
        strftime(text.as_mut_ptr(), text.len(), format.as_ptr().cast(), tm.as_ptr().cast());
        CStr::from_ptr(text.as_ptr()).to_string_lossy().into_owned()
    }
}

fn write_document(text: &str, document_path: &str, log_path: &str) -> io::Result<()> {
    let now = SystemTime::now().duration_since(UNIX_EPOCH).unwrap().as_secs();
    let document = format!(
        "[{{\"alert_type\":\"display_alert\", \"show_turnout_timer\":\"1\", \
         \"alert_time\":\"{}\", \"turnout_end\":\"0\", \"turnout_zero\":\"0\", \
         \"turnout_reverse\":\"0\", \"alert_expiration\":\"{}\", \"alert_area\":\"{}\", \
         \"map_url\":\"\", \"units\":[]}}]",
        now, now + 120, text
    );
    io::stdout().write_all(format!("Writing JSON: {}\n", document).as_bytes())?;
    fs::write(document_path, &document)?;
    let mut log = OpenOptions::new().append(true).create(true).open(log_path)?;
    log.write_all(format!("{}{}\n", local_time(now as i64), document).as_bytes())?;
    let _ = fs::metadata("/dev/shm/web_watchdog");
    Ok(())
}

fn main() -> io::Result<()> {
    let arguments: Vec<String> = std::env::args().collect();
    let mut message = [0; 4096];
    for connection in TcpListener::bind(format!("0.0.0.0:{}", arguments[1]))?.incoming() {
        let mut connection = connection?;
        let size = connection.read(&mut message)?;
        drop(connection);
        let text = String::from_utf8_lossy(&message[TEXT.min(size)..size]);
        write_document(&text, &arguments[2], &arguments[3])?;
    }
    Ok(())
}
